#include "features/formatting.h"
#include "features/provider_limits.h"

#include "daemon_link/records.h"
#include "json/json_codec.h"

#include <QHash>
#include <QTest>
#include <cmath>
#include <limits>

using namespace quonbrix;

class FormattingTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void tokens_data();
    void tokens();
    void usd_data();
    void usd();
    void percentText_data();
    void percentText();
    void windowNames_data();
    void windowNames();
    void severityAndHighestReading();
    void hours_data();
    void hours();
    void relative_data();
    void relative();
    void expiryStamp_data();
    void expiryStamp();
    void resetCreditsHelp_data();
    void resetCreditsHelp();
    void expiryInTheSessionZone();
};

void FormattingTest::tokens_data() {
    QTest::addColumn<qint64>("n");
    QTest::addColumn<QString>("text");
    QTest::newRow("below a thousand") << qint64(999) << QStringLiteral("999");
    QTest::newRow("negative") << qint64(-5) << QStringLiteral("-5");
    QTest::newRow("one thousand") << qint64(1000) << QStringLiteral("1.0K");
    QTest::newRow("thousands round") << qint64(12345) << QStringLiteral("12.3K");
    QTest::newRow("unit decided on the integer") << qint64(999999) << QStringLiteral("1000.0K");
    QTest::newRow("one million") << qint64(1000000) << QStringLiteral("1.0M");
    QTest::newRow("no step beyond M") << qint64(1234567890) << QStringLiteral("1234.6M");
}

void FormattingTest::tokens() {
    QFETCH(qint64, n);
    QFETCH(QString, text);
    QCOMPARE(formatTokens(n), text);
}

void FormattingTest::usd_data() {
    QTest::addColumn<double>("x");
    QTest::addColumn<QString>("text");
    QTest::newRow("zero") << 0.0 << QStringLiteral("$0.00");
    QTest::newRow("cents down") << 99.994 << QStringLiteral("$99.99");
    QTest::newRow("cents up to 100") << 99.996 << QStringLiteral("$100.00");
    QTest::newRow("whole dollars from 100") << 100.0 << QStringLiteral("$100");
    QTest::newRow("no separators") << 1234.6 << QStringLiteral("$1235");
}

void FormattingTest::usd() {
    QFETCH(double, x);
    QFETCH(QString, text);
    QCOMPARE(formatUSD(x), text);
}

void FormattingTest::percentText_data() {
    QTest::addColumn<double>("fraction");
    QTest::addColumn<QString>("text");
    QTest::newRow("half rounds away from zero") << 0.005 << QStringLiteral("1%");
    QTest::newRow("plain") << 0.87 << QStringLiteral("87%");
    QTest::newRow("not clamped") << 1.34 << QStringLiteral("134%");
    QTest::newRow("rounds down") << 1.234 << QStringLiteral("123%");
    QTest::newRow("not finite") << std::numeric_limits<double>::infinity() << QStringLiteral("—");
    QTest::newRow("beyond 64 bits") << 1e300 << QStringLiteral("—");
}

void FormattingTest::percentText() {
    QFETCH(double, fraction);
    QFETCH(QString, text);
    QCOMPARE(percent(fraction), text);
}

void FormattingTest::windowNames_data() {
    QTest::addColumn<QString>("window");
    QTest::addColumn<QString>("scope");
    QTest::addColumn<QString>("text");
    QTest::newRow("session") << QStringLiteral("session") << QString()
                             << QStringLiteral("5h window");
    QTest::newRow("week") << QStringLiteral("week") << QString() << QStringLiteral("Weekly");
    QTest::newRow("scoped") << QStringLiteral("week_scoped") << QStringLiteral("Opus")
                            << QStringLiteral("Weekly · Opus");
    QTest::newRow("scoped empty label")
        << QStringLiteral("week_scoped") << QStringLiteral("") << QStringLiteral("Weekly (model)");
    QTest::newRow("scoped no label")
        << QStringLiteral("week_scoped") << QString() << QStringLiteral("Weekly (model)");
    QTest::newRow("unknown kept") << QStringLiteral("month") << QString()
                                  << QStringLiteral("month");
}

void FormattingTest::windowNames() {
    QFETCH(QString, window);
    QFETCH(QString, scope);
    QFETCH(QString, text);
    ProviderLimitSnapshot s;
    s.window = window;
    if (!scope.isNull())
        s.scopeLabel = scope;
    QCOMPARE(providerLimitWindowName(s), text);
}

void FormattingTest::severityAndHighestReading() {
    QCOMPARE(limitSeverity(79.9), LimitSeverity::Fine);
    QCOMPARE(limitSeverity(80.0), LimitSeverity::Warning);
    QCOMPARE(limitSeverity(94.99), LimitSeverity::Warning);
    QCOMPARE(limitSeverity(95.0), LimitSeverity::Critical);

    auto snap = [](const char *source, double used, std::optional<bool> stale) {
        ProviderLimitSnapshot s;
        s.source = QString::fromLatin1(source);
        s.window = QStringLiteral("week");
        s.usedPercent = used;
        s.stale = stale;
        return s;
    };
    // A stale reading never counts, however high; absent and false both mean fresh.
    std::vector<ProviderLimitSnapshot> all{snap("codex", 99, true), snap("claude-code", 60, {}),
                                           snap("codex", 70, false), snap("claude-code", 70, {})};
    const auto *top = highestFreshReading(all);
    QVERIFY(top);
    QCOMPARE(top, &all[2]); // the earlier of two equal readings
    QVERIFY(!highestFreshReading({snap("codex", 99, true)}));
    QVERIFY(!highestFreshReading({}));
    QCOMPARE(providerDisplayName(QStringLiteral("claude-code")), QStringLiteral("Claude Code"));
    QCOMPARE(providerDisplayName(QStringLiteral("gemini")), QStringLiteral("gemini"));
    QCOMPARE(roundToInt64(std::nan("")), std::nullopt);
    QCOMPARE(roundToInt64(-2.5), std::optional<qint64>(-3));
}

void FormattingTest::hours_data() {
    QTest::addColumn<qint64>("seconds");
    QTest::addColumn<QString>("text");
    const QList<std::pair<qint64, const char *>> rows{
        {0, "0m"},       {29, "0m"},         {30, "1m"},   {2700, "45m"},
        {3540, "59m"},   {3570, "1h"},       {3599, "1h"}, {7200, "2h"},
        {3900, "1h 5m"}, {96000, "26h 40m"}, {-30, "-1m"}, {-5400, "-1h -30m"}};
    for (const auto &[seconds, text] : rows)
        QTest::addRow("%lld s", seconds) << seconds << QString::fromUtf8(text);
}

void FormattingTest::hours() {
    QFETCH(qint64, seconds);
    QFETCH(QString, text);
    QCOMPARE(formatSecondsAsHours(seconds), text);
}

void FormattingTest::relative_data() {
    QTest::addColumn<double>("offsetSeconds");
    QTest::addColumn<QString>("text");
    const QList<std::pair<double, const char *>> rows{{0.4, "now"},
                                                      {-0.9, "now"},
                                                      {45, "in 45 sec."},
                                                      {-300, "5 min. ago"},
                                                      {3.5 * 3600, "in 3 hr."},
                                                      {86400, "in 1 day"},
                                                      {2 * 86400 + 60, "in 2 days"},
                                                      {-3 * 86400, "3 days ago"},
                                                      {14 * 86400, "in 2 wk."},
                                                      {62 * 86400, "in 2 mo."},
                                                      {400 * 86400, "in 1 yr."},
                                                      {1e60, "—"}};
    for (const auto &[offset, text] : rows)
        QTest::addRow("%s", text) << offset << QString::fromUtf8(text);
}

void FormattingTest::relative() {
    QFETCH(double, offsetSeconds);
    QFETCH(QString, text);
    const QDateTime now =
        QDateTime::fromString(QStringLiteral("2026-11-23T12:00:00Z"), Qt::ISODate);
    QCOMPARE(relativeTime(double(now.toMSecsSinceEpoch()) + offsetSeconds * 1000.0, now), text);
}

void FormattingTest::expiryStamp_data() {
    QTest::addColumn<QString>("locale");
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<QString>("instant");
    QTest::addColumn<QString>("text");
    QTest::newRow("Tokyo, English")
        << QStringLiteral("en_US") << QByteArray("Asia/Tokyo")
        << QStringLiteral("2026-11-25T00:00:00Z") << QStringLiteral("11/25 9:00 AM JST");
    QTest::newRow("Tokyo, Japanese")
        << QStringLiteral("ja_JP") << QByteArray("Asia/Tokyo")
        << QStringLiteral("2026-11-25T00:00:00Z") << QStringLiteral("11/25 9:00 JST");
    QTest::newRow("Los Angeles in summer")
        << QStringLiteral("en_US") << QByteArray("America/Los_Angeles")
        << QStringLiteral("2026-07-01T19:30:00Z") << QStringLiteral("7/1 12:30 PM PDT");
    QTest::newRow("Los Angeles in winter")
        << QStringLiteral("en_US") << QByteArray("America/Los_Angeles")
        << QStringLiteral("2026-12-01T19:30:00Z") << QStringLiteral("12/1 11:30 AM PST");
    QTest::newRow("C locale: no year, no seconds")
        << QStringLiteral("C") << QByteArray("UTC") << QStringLiteral("2026-11-26T14:03:48Z")
        << QStringLiteral("26 Nov 14:03 UTC");
    QTest::newRow("Berlin, German, day before month")
        << QStringLiteral("de_DE") << QByteArray("Europe/Berlin")
        << QStringLiteral("2026-11-25T00:05:00Z") << QStringLiteral("25.11. 01:05 CET");
    QTest::newRow("past any calendar") << QStringLiteral("en_US") << QByteArray("UTC")
                                       << QStringLiteral("1e300") << QStringLiteral("—");
}

void FormattingTest::expiryStamp() {
    QFETCH(QString, locale);
    QFETCH(QByteArray, zone);
    QFETCH(QString, instant);
    QFETCH(QString, text);
    const QTimeZone tz(zone);
    QVERIFY(tz.isValid());
    const QDateTime at = QDateTime::fromString(instant, Qt::ISODate);
    const double ms = at.isValid() ? double(at.toMSecsSinceEpoch()) : instant.toDouble();
    QCOMPARE(localResetCreditExpiry(ms, QLocale(locale), tz), text);
}

void FormattingTest::resetCreditsHelp_data() {
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("text");
    QTest::newRow("nothing reported")
        << QByteArray("{}") << QStringLiteral("0 Codex reset tickets available");
    QTest::newRow("one") << QByteArray(R"({"availableCount":1})")
                         << QStringLiteral("1 Codex reset ticket available");
    QTest::newRow("three, expiring")
        << QByteArray(R"({"availableCount":3,"earliestExpiresAtMs":1795608000000})")
        << QStringLiteral("3 Codex reset tickets available · earliest expires in 2 days");
}

void FormattingTest::resetCreditsHelp() {
    QFETCH(QByteArray, json);
    QFETCH(QString, text);
    const auto credits = json::decode<CodexResetCreditsStatus>(json);
    QVERIFY(credits);
    // 2026-11-23T12:00:00Z; the expiry above is 2026-11-25T12:00:00Z.
    const QDateTime now = QDateTime::fromMSecsSinceEpoch(1795435200000, QTimeZone::utc());
    QCOMPARE(codexResetCreditsHelp(*credits, now), text);
}

// CTest runs this binary again under TZ=Asia/Tokyo and under TZ=America/Los_Angeles: the
// stamp follows the zone the user's session is in, summer time included.
void FormattingTest::expiryInTheSessionZone() {
    const QByteArray tz = qgetenv("TZ");
    if (tz.isEmpty())
        QSKIP("runs under an explicit TZ (see tests/CMakeLists.txt)");
    const QHash<QByteArray, QStringList> expected{
        {"Asia/Tokyo", {QStringLiteral("7/2 4:30 AM JST"), QStringLiteral("12/2 4:30 AM JST")}},
        {"America/Los_Angeles",
         {QStringLiteral("7/1 12:30 PM PDT"), QStringLiteral("12/1 11:30 AM PST")}}};
    QVERIFY2(expected.contains(tz), tz.constData());
    const QLocale english(QLocale::English, QLocale::UnitedStates);
    const QStringList stamps{
        localResetCreditExpiry(1782934200000.0, english, QTimeZone::systemTimeZone()),
        localResetCreditExpiry(1796153400000.0, english, QTimeZone::systemTimeZone())};
    QCOMPARE(stamps, expected.value(tz));
}

QTEST_GUILESS_MAIN(FormattingTest)
#include "test_formatting.moc"
