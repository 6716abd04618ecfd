#include "log/log_categories.h"

Q_LOGGING_CATEGORY(lcAccount, "quonbrix.account")
Q_LOGGING_CATEGORY(lcAlerts, "quonbrix.alerts")
Q_LOGGING_CATEGORY(lcAttention, "quonbrix.attention")
Q_LOGGING_CATEGORY(lcDaemonLink, "quonbrix.daemon_link")
Q_LOGGING_CATEGORY(lcIntegrations, "quonbrix.integrations")
Q_LOGGING_CATEGORY(lcNotifications, "quonbrix.notifications")
Q_LOGGING_CATEGORY(lcPopover, "quonbrix.popover")
Q_LOGGING_CATEGORY(lcShell, "quonbrix.shell")
Q_LOGGING_CATEGORY(lcStatus, "quonbrix.status")
Q_LOGGING_CATEGORY(lcSupervisor, "quonbrix.supervisor")
Q_LOGGING_CATEGORY(lcTrustStore, "quonbrix.truststore")
Q_LOGGING_CATEGORY(lcUpdate, "quonbrix.update")
