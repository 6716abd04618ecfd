#pragma once

namespace quonbrix {

// Something that can restart the meter daemon. The status model holds one weakly and asks it
// for a restart once a sign-in has left its enrollment file behind.
class DaemonRestarter {
public:
    virtual ~DaemonRestarter();
    // Must return at once; the work (stopping, waiting, relaunching) happens elsewhere.
    virtual void restart() = 0;
};

} // namespace quonbrix
