// How provider readings are grouped, ordered and told apart, the way the popover lists them
// and the alerts remember them.

#include "daemon_link/records.h"
#include "features/alerts.h"
#include "features/limit_forecast.h"
#include "features/provider_limits.h"
#include "json/json_codec.h"

#include <QTest>

using namespace quonbrix;

namespace {

ProviderLimitSnapshot reading(const QString &source, const QString &window,
                              std::optional<QString> scope = std::nullopt) {
    ProviderLimitSnapshot s;
    s.source = source;
    s.window = window;
    s.scopeLabel = std::move(scope);
    return s;
}

// "source:window[:scope]" per row, group by group.
QStringList layout(const std::vector<ProviderLimitSnapshot> &all) {
    QStringList rows;
    for (const auto &group : groupProviderLimits(all))
        for (const auto *s : group.snapshots)
            rows << group.source + u':' + s->window +
                        (s->scopeLabel ? u':' + *s->scopeLabel : QString());
    return rows;
}

// "a b c" -> {"a", "b", "c"}
QStringList words(const char *text) {
    return QString::fromUtf8(text).split(u' ', Qt::SkipEmptyParts);
}

} // namespace

class ProviderLimitsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void grouping_data();
    void grouping();
    void identityKey_data();
    void identityKey();
    void resetTickets_data();
    void resetTickets();
    void forecast_data();
    void forecast();
};

void ProviderLimitsTest::grouping_data() {
    QTest::addColumn<QStringList>("input");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("windows of one source by rank, equal ranks in daemon order")
        << words("cc:week cc:other cc:session cc:week_scoped:Opus cc:week_scoped:Sonnet")
        << words("cc:session cc:week cc:week_scoped:Opus cc:week_scoped:Sonnet cc:other");
    QTest::newRow("groups in order of first appearance")
        << words("codex:week claude-code:session codex:session mystery:x")
        << words("codex:session codex:week claude-code:session mystery:x");
    QTest::newRow("two unknown windows keep their order")
        << words("cc:zeta cc:alpha") << words("cc:zeta cc:alpha");
    QTest::newRow("nothing") << QStringList() << QStringList();
}

void ProviderLimitsTest::grouping() {
    QFETCH(QStringList, input);
    QFETCH(QStringList, expected);
    std::vector<ProviderLimitSnapshot> all;
    for (const QString &row : input) {
        const QStringList parts = row.split(u':');
        all.push_back(
            reading(parts.at(0), parts.at(1),
                    parts.size() > 2 ? std::optional<QString>(parts.at(2)) : std::nullopt));
    }
    QCOMPARE(layout(all), expected);
}

void ProviderLimitsTest::identityKey_data() {
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("key");
    QTest::newRow("weekly with a reset instant")
        << QByteArray(R"({"source":"claude-code","window":"week","usedPercent":91,
                          "resetsAtMs":1767225600000})")
        << QStringLiteral("claude-code|week||29453760");
    QTest::newRow("jitter within the minute is the same window")
        << QByteArray(R"({"source":"claude-code","window":"week","usedPercent":91,
                          "resetsAtMs":1767225659999})")
        << QStringLiteral("claude-code|week||29453760");
    QTest::newRow("the next minute is a new window")
        << QByteArray(R"({"source":"claude-code","window":"week","usedPercent":91,
                          "resetsAtMs":1767225660000})")
        << QStringLiteral("claude-code|week||29453761");
    QTest::newRow("scoped, period only")
        << QByteArray(R"({"source":"claude-code","window":"week_scoped","usedPercent":5,
                          "scopeLabel":"Opus","period":"2026-W48"})")
        << QStringLiteral("claude-code|week_scoped|Opus|2026-W48");
    QTest::newRow("neither reset nor period")
        << QByteArray(R"({"source":"codex","window":"week","usedPercent":5})")
        << QStringLiteral("codex|week||");
    QTest::newRow("reset too large for 64 bits falls back to the period")
        << QByteArray(R"({"source":"codex","window":"week","usedPercent":5,"resetsAtMs":1e300,
                          "period":"p7"})")
        << QStringLiteral("codex|week||p7");
}

void ProviderLimitsTest::identityKey() {
    QFETCH(QByteArray, json);
    QFETCH(QString, key);
    const auto snapshot = json::decode<ProviderLimitSnapshot>(json);
    QVERIFY(snapshot);
    QCOMPARE(limitIdentityKey(*snapshot), key);
}

void ProviderLimitsTest::resetTickets_data() {
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<qint64>("count");
    QTest::newRow("empty object") << QByteArray("{}") << qint64(0);
    QTest::newRow("null count") << QByteArray(R"({"availableCount":null})") << qint64(0);
    QTest::newRow("three") << QByteArray(R"({"availableCount":3,"stale":false})") << qint64(3);
}

void ProviderLimitsTest::resetTickets() {
    QFETCH(QByteArray, json);
    QFETCH(qint64, count);
    const auto credits = json::decode<CodexResetCreditsStatus>(json);
    QVERIFY(credits);
    QCOMPARE(resetTicketCount(*credits), count);
}

// Each pass is one status read of a Claude Code 5-hour reading, ";" between passes:
// "t=MIN used=PCT [reset=MIN] [win=MIN] [stale]", minutes counted from 12:00 in Tokyo.
// Checked: the row's text after the last pass, and every notice posted on the way.
void ProviderLimitsTest::forecast_data() {
    QTest::addColumn<QString>("passes");
    QTest::addColumn<QString>("locale");
    QTest::addColumn<QString>("row");
    QTest::addColumn<QStringList>("notices");
    const auto row = [](const char *name, const char *passes, const char *locale,
                        const char *runOut, std::initializer_list<const char *> notices = {}) {
        QStringList texts;
        for (const char *n : notices)
            texts << QString::fromUtf8(n);
        QTest::newRow(name) << QString::fromUtf8(passes) << QString::fromUtf8(locale)
                            << (*runOut ? QStringLiteral("runs out ~") + QString::fromUtf8(runOut) +
                                              QStringLiteral(" at this pace")
                                        : QString())
                            << texts;
    };
    // 90 % used 4 hours into the window: 10 % more at 0.375 %/min is 26.7 minutes away.
    const char *steady = "Claude Code 5h window runs out in ~27 min | At this pace the limit is "
                         "reached at 12:26, before it resets at 13:00.";
    row("steady pace, before the reset", "t=0 used=90 reset=60 win=300", "de_DE", "12:26",
        {steady});
    row("12-hour locale", "t=0 used=90 reset=60 win=300", "en_US", "12:26 PM",
        {"Claude Code 5h window runs out in ~27 min | At this pace the limit is reached at "
         "12:26 PM, before it resets at 1:00 PM."});
    row("lasts past the reset", "t=0 used=60 reset=60 win=300", "de_DE", "");
    row("stale", "t=0 used=90 reset=60 win=300 stale", "de_DE", "");
    row("no window length", "t=0 used=90 reset=60", "de_DE", "");
    row("no reset instant", "t=0 used=90 win=300", "de_DE", "");
    row("used up", "t=0 used=100 reset=60 win=300", "de_DE", "");
    row("pace zero", "t=0 used=0 reset=60 win=300", "de_DE", "");
    // 14 of 300 minutes in is under 5 %; 15 is not (90 % more at 10/15 %/min: 14:15).
    row("first minutes of the window", "t=0 used=10 reset=286 win=300", "de_DE", "");
    row("5 % into the window", "t=0 used=10 reset=285 win=300", "de_DE", "14:15");
    row("NaN used", "t=0 used=nan reset=60 win=300", "de_DE", "");
    row("negative used", "t=0 used=-5 reset=60 win=300", "de_DE", "");
    row("absurd window and reset", "t=0 used=90 reset=1e300 win=1e300", "de_DE", "");
    row("reset already passed", "t=0 used=90 reset=-10 win=300", "de_DE", "");
    // The window's average lasts past 14:00; 20 % in the last ten minutes runs out at 12:30.
    row("recent burst overrides the window average",
        "t=0 used=40 reset=120 win=300; t=5 used=50 reset=120 win=300;"
        "t=10 used=60 reset=120 win=300",
        "de_DE", "12:30",
        {"Claude Code 5h window runs out in ~20 min | At this pace the limit is reached at "
         "12:30, before it resets at 14:00."});
    // The same figures, but the reset moved: a new window, paced by its own average.
    row("reset moved: a fresh ring",
        "t=0 used=40 reset=120 win=300; t=5 used=50 reset=120 win=300;"
        "t=10 used=60 reset=125 win=300",
        "de_DE", "");
    // Announced at once; at 12:12 the recent pace lasts past the reset; at 12:24 it runs out
    // at 12:40 again, and stays unannounced.
    row("one notice per window, not again after falling back",
        "t=0 used=90 reset=60 win=300; t=1 used=90.4 reset=60 win=300;"
        "t=12 used=90.5 reset=60 win=300; t=24 used=96 reset=60 win=300",
        "de_DE", "12:40", {steady});
}

void ProviderLimitsTest::forecast() {
    QFETCH(QString, passes);
    QFETCH(QString, locale);
    QFETCH(QString, row);
    QFETCH(QStringList, notices);
    const QDateTime start = QDateTime::fromString(QStringLiteral("2026-11-23T03:00:00Z"),
                                                  Qt::ISODate); // 12:00 in Tokyo
    const QTimeZone tokyo("Asia/Tokyo");
    QVERIFY(tokyo.isValid());
    PaceHistory history;
    AlertRules alerts;
    QString shown;
    QStringList posted;
    for (const QString &pass : passes.split(u';')) {
        ProviderLimitSnapshot s = reading(QStringLiteral("claude-code"), QStringLiteral("session"));
        double minutes = 0;
        for (const QString &field : pass.split(u' ', Qt::SkipEmptyParts)) {
            const QString name = field.section(u'=', 0, 0);
            const double value = field.section(u'=', 1).toDouble();
            const double ms = double(start.toMSecsSinceEpoch()) + value * 60000.0;
            if (name == QLatin1String("t"))
                minutes = value;
            else if (name == QLatin1String("used"))
                s.usedPercent = value;
            else if (name == QLatin1String("reset"))
                s.resetsAtMs = ms;
            else if (name == QLatin1String("win"))
                s.windowMinutes = value;
            else if (name == QLatin1String("stale"))
                s.stale = true;
        }
        DaemonStatus status;
        status.providerLimits = std::vector{s};
        const QDateTime now = start.addSecs(qint64(minutes * 60));
        history.record(double(now.toMSecsSinceEpoch()), *status.providerLimits);
        const ForecastContext context{now, &history, QLocale(locale), tokyo};
        shown = runOutRowText(s, context);
        for (const DesktopNotification &n : alerts.forecasts(status, context)) {
            QVERIFY(n.identifier.startsWith(QLatin1String("quon-brix-forecast-claude-code|")));
            posted << n.title + QStringLiteral(" | ") + n.body;
        }
    }
    QCOMPARE(shown, row);
    QCOMPARE(posted, notices);
}

QTEST_GUILESS_MAIN(ProviderLimitsTest)
#include "test_provider_limits.moc"
