#pragma once

#include <QString>
#include <optional>

namespace quonbrix {

// What the status model may ask of the daemon's keeper. It holds one weakly: it restarts the
// daemon once a sign-in has left its enrollment file behind, and builds the terminal sign-in
// command from where the daemon and its CA bundle are.
class DaemonRestarter {
public:
    virtual ~DaemonRestarter();
    // Must return at once; the work (stopping, waiting, relaunching) happens elsewhere.
    virtual void restart() = 0;
    // The CA bundle handed to the daemon, when one was built. May block while it is built.
    virtual std::optional<QString> trustStorePath() { return std::nullopt; }
    // The daemon executable in use, when one was found.
    virtual std::optional<QString> daemonPath() const { return std::nullopt; }
};

} // namespace quonbrix
