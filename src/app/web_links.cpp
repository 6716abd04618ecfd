#include "app/web_links.h"

namespace quonbrix {

WebLinks WebLinks::from(const Environment &env) {
    QString base = env.value(QStringLiteral("QUON_CONSOLE_URL"), QString());
    if (!base.startsWith(QLatin1String("http")))
        base = QStringLiteral("https://console.quon.app");
    if (base.endsWith(u'/'))
        base.chop(1);
    return {QUrl(base), QUrl(base + QStringLiteral("/local"))};
}

} // namespace quonbrix
