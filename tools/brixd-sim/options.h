#pragma once

// The command line and its environment twins. The app's supervisor starts the daemon as
// `brixd run` with nothing else, so every option can also come from the environment; an
// option on the command line wins.

#include "account_api.h"
#include "scenario.h"

#include "platform/environment.h"

#include <QStringList>
#include <optional>

namespace quonbrix::sim {

struct Fault {
    // Killed: the sim dies (SIGKILL) with the request in hand. Huge, Deep and Projects change
    // only /status: a valid status padded to 50 MB, one with a value nested 10,000 deep, or one
    // with `count` projects.
    enum class Kind { None, ServerError, Hang, Garbage, Slow, Killed, Huge, Deep, Projects };
    Kind kind = Kind::None;
    double delaySeconds = 0;
    int count = 0;
    // cycle=SECONDS: none, 500, hang, garbage, slow=2 and killed in turn, each for SECONDS of
    // the wall clock, so that a sim started again carries on where the last one died.
    double cycleSeconds = 0;

    // The fault in force at `epochSeconds`.
    Fault at(double epochSeconds) const;
    // As it is written on the command line ("slow=0.5"); empty for none.
    QString text() const;
};

// "500", "hang", "garbage", "slow=SECONDS", "killed", "huge", "deep", "projects=N" or
// "cycle=SECONDS"; empty text is no fault.
std::optional<Fault> parseFault(const QString &text);

struct RunOptions {
    QString scenario = defaultScenarioName;
    Fault fault;
    quint16 port = 8511;
    std::optional<QString> forcedSyncSkip;
    // The account API's port; absent: not served.
    std::optional<quint16> accountPort;
    AccountScript accountScript;
    QString accountScriptText; // as given, for the start line
};

enum class Command { Run, List, Help };

struct Invocation {
    Command command = Command::Help;
    RunOptions run;
    // Set when the command line or an environment variable cannot be used.
    QString usageError;
};

Invocation parseInvocation(const QStringList &arguments, const Environment &env);

QString helpText();

} // namespace quonbrix::sim
