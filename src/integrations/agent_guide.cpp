#include "integrations/agent_guide.h"

#include <QFile>

// Resources of a static library are registered by name; outside any namespace, as the macro
// declares a global function.
static void registerGuideResource() {
    Q_INIT_RESOURCE(quonbrix_agent_guide);
}

namespace quonbrix::integrations {

namespace {

constexpr QStringView kStartMarker = u"<!-- brix-guide:project-rules:start -->";
constexpr QStringView kEndMarker = u"<!-- brix-guide:project-rules:end -->";
constexpr QStringView kOpeningFence = u"```markdown\n";
constexpr QStringView kClosingFence = u"\n```";

} // namespace

std::optional<QString> agentGuideText() {
    static const bool registered = (registerGuideResource(), true);
    Q_UNUSED(registered);
    QFile file(QStringLiteral(":/quonbrix/QuonBrixAgentGuide.md"));
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return QString::fromUtf8(file.readAll());
}

QString projectRules(const QString &guide) {
    const qsizetype start = guide.indexOf(kStartMarker);
    if (start < 0)
        return guide;
    const qsizetype from = start + kStartMarker.size();
    const qsizetype end = guide.indexOf(kEndMarker, from);
    if (end < 0)
        return guide;
    const QString section = guide.mid(from, end - from);

    // The last closing fence, so fences inside the rules stay in them.
    const qsizetype open = section.indexOf(kOpeningFence);
    if (open >= 0) {
        const qsizetype close = section.lastIndexOf(kClosingFence);
        if (close > open) {
            const qsizetype inner = open + kOpeningFence.size();
            return section.mid(inner, std::max<qsizetype>(0, close - inner));
        }
    }
    return section.trimmed();
}

} // namespace quonbrix::integrations
