#pragma once

// Every logging category of the app, one per subsystem. Messages carry the documented
// "[QuonBrix] subject: …" wording themselves; log_sink.h prints them as they are.

#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(lcAccount)       // quonbrix.account: sign-in, tokens, enrollment
Q_DECLARE_LOGGING_CATEGORY(lcAlerts)        // quonbrix.alerts: limit and goal notifications
Q_DECLARE_LOGGING_CATEGORY(lcAttention)     // quonbrix.attention: idle time, focused app
Q_DECLARE_LOGGING_CATEGORY(lcDaemonLink)    // quonbrix.daemon_link: the daemon's HTTP API
Q_DECLARE_LOGGING_CATEGORY(lcIntegrations)  // quonbrix.integrations: MCP installs
Q_DECLARE_LOGGING_CATEGORY(lcNotifications) // quonbrix.notifications: desktop notifications
Q_DECLARE_LOGGING_CATEGORY(lcPopover)       // quonbrix.popover: the popover and its process
Q_DECLARE_LOGGING_CATEGORY(lcShell)         // quonbrix.shell: tray, instance, browser
Q_DECLARE_LOGGING_CATEGORY(lcStatus)        // quonbrix.status: the status loop, console
Q_DECLARE_LOGGING_CATEGORY(lcSupervisor)    // quonbrix.supervisor: keeping brixd alive
Q_DECLARE_LOGGING_CATEGORY(lcTrustStore)    // quonbrix.truststore: brixd's CA bundle
Q_DECLARE_LOGGING_CATEGORY(lcUpdate)        // quonbrix.update: new versions and installs
