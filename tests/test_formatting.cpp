#include "features/provider_limits.h"
#include "ui/formatting.h"

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

QTEST_GUILESS_MAIN(FormattingTest)
#include "test_formatting.moc"
