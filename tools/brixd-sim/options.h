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
    enum class Kind { None, ServerError, Hang, Garbage, Slow };
    Kind kind = Kind::None;
    double delaySeconds = 0;

    // As it is written on the command line ("slow=0.5"); empty for none.
    QString text() const;
};

// "500", "hang", "garbage" or "slow=SECONDS"; empty text is no fault.
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
