#include "app/web_links.h"

namespace quonbrix {

WebLinks WebLinks::from(const Environment &env) {
    const QString base = env.consoleBase();
    return {QUrl(base), QUrl(base + QStringLiteral("/local"))};
}

} // namespace quonbrix
