#include "ui/popover_model.h"

#include "ui/symbols.h"

namespace quonbrix {

PopoverModel::PopoverModel(StatusModel *status, QString trayHint, WorkPanelModel::Links links,
                           QObject *parent)
    : QObject(parent)
    , m_status(status)
    , m_trayHint(std::move(trayHint))
    , m_work(new WorkPanelModel(status, std::move(links), this)) {
    connect(m_status, &StatusModel::statusChanged, this, &PopoverModel::headerChanged);
    connect(m_status, &StatusModel::statusChanged, this, &PopoverModel::refreshTexts);
    refreshTexts();
}

QUrl PopoverModel::quitSymbol() const {
    return symbolSource(QStringLiteral("power"));
}

QUrl PopoverModel::symbol(const QString &name) const {
    return symbolSource(name);
}

void PopoverModel::setContext(const Clock *clock, QLocale locale, QTimeZone zone) {
    m_clock = clock;
    m_locale = std::move(locale);
    m_zone = std::move(zone);
    refreshTexts();
}

void PopoverModel::refreshTexts() {
    const auto &status = m_status->status();
    const PanelContext context{m_clock->now(), m_locale, m_zone};
    const auto badgeMap = [](const ResetCreditBadge &b) {
        return QVariantMap{{QStringLiteral("text"), b.text},
                           {QStringLiteral("expiry"), b.expiry},
                           {QStringLiteral("help"), b.help},
                           {QStringLiteral("symbol"), symbolSource(QStringLiteral("ticket.fill"))}};
    };

    m_hasLimitReadings = status && status->providerLimits && !status->providerLimits->empty();
    m_headline.clear();
    m_limitGroups.clear();
    m_todayColumns.clear();
    m_sourceShares.clear();
    m_unavailable = {
        {QStringLiteral("heading"), panel_text::unavailableHeading},
        {QStringLiteral("text"), panel_text::unavailableText},
        {QStringLiteral("symbol"), symbolSource(QStringLiteral("questionmark.circle"))},
        {QStringLiteral("creditsLabel"), panel_text::unavailableCredits},
        {QStringLiteral("credits"), QVariantMap()},
    };
    if (!status) {
        Q_EMIT panelsChanged();
        return;
    }
    if (status->codexResetCredits)
        m_unavailable.insert(QStringLiteral("credits"),
                             badgeMap(resetCreditBadge(*status->codexResetCredits, context)));

    if (m_hasLimitReadings) {
        const LimitHeadline h = limitHeadline(*status->providerLimits);
        m_headline = {{QStringLiteral("text"), h.text},
                      {QStringLiteral("color"), toneColor(h.tone)},
                      {QStringLiteral("symbol"), symbolSource(h.symbol)},
                      {QStringLiteral("remaining"), h.remaining},
                      {QStringLiteral("detail"), h.detail}};
        for (const LimitGroup &g : quonbrix::limitGroups(*status, context)) {
            QVariantList rows;
            for (const LimitRow &r : g.rows)
                rows << QVariantMap{{QStringLiteral("symbol"),
                                     r.symbol.isEmpty() ? QUrl() : symbolSource(r.symbol)},
                                    {QStringLiteral("window"), r.window},
                                    {QStringLiteral("fraction"), r.fraction},
                                    {QStringLiteral("percent"), r.percent},
                                    {QStringLiteral("resets"), r.resets},
                                    {QStringLiteral("stale"), r.stale},
                                    {QStringLiteral("help"), r.help}};
            m_limitGroups << QVariantMap{
                {QStringLiteral("heading"), g.heading},
                {QStringLiteral("source"), g.source},
                {QStringLiteral("color"), providerColor(g.source)},
                {QStringLiteral("credits"), g.credits ? badgeMap(*g.credits) : QVariantMap()},
                {QStringLiteral("rows"), rows}};
        }
    }
    for (const TodayColumn &c : quonbrix::todayColumns(*status))
        m_todayColumns << QVariantMap{
            {QStringLiteral("value"), c.value},
            {QStringLiteral("caption"), c.caption},
            {QStringLiteral("help"), c.help},
            {QStringLiteral("symbol"),
             c.help.isEmpty() ? QUrl() : symbolSource(QStringLiteral("info.circle"))}};
    for (const SourceShare &share : sourceBreakdown(*status))
        m_sourceShares << QVariantMap{{QStringLiteral("name"), share.name},
                                      {QStringLiteral("fraction"), share.fraction},
                                      {QStringLiteral("percent"), share.percent}};
    Q_EMIT panelsChanged();
}

QString PopoverModel::statusPill() const {
    if (!m_status->hasStatus())
        return QStringLiteral("Starting");
    return QStringLiteral("Local meter");
}

QString PopoverModel::subtitle() const {
    if (!m_status->hasStatus())
        return QStringLiteral("Local meter daemon");
    return QStringLiteral("Local only · no account needed");
}

void PopoverModel::quit() {
    Q_EMIT quitRequested();
}

QString PopoverModel::noTrayHint(const QString &currentDesktop) {
    const QStringList desktops = currentDesktop.split(QLatin1Char(':'), Qt::SkipEmptyParts);
    if (desktops.contains(QLatin1String("GNOME"), Qt::CaseInsensitive))
        return QStringLiteral("No tray icon: enable the AppIndicator extension "
                              "(gnome-shell-extension-appindicator) and start QuonBrix again.");
    return QStringLiteral("No tray icon: add a system tray to your panel (waybar: the \"tray\" "
                          "module) and start QuonBrix again.");
}

} // namespace quonbrix
