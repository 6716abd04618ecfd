// What the popover's limits, "Today" and sign-in panels say for the states a user runs into.

#include "daemon_link/records.h"
#include "support/fixtures.h"
#include "ui/account_panels.h"
#include "ui/popover_panels.h"
#include "json/json_codec.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace quonbrix;

namespace {

// "source window percent [stale]" per reading, ";" between readings.
std::vector<ProviderLimitSnapshot> readings(const QString &rows) {
    std::vector<ProviderLimitSnapshot> out;
    for (const QString &r : rows.split(u';', Qt::SkipEmptyParts)) {
        const QStringList f = r.trimmed().split(u' ');
        ProviderLimitSnapshot s;
        s.source = f.at(0);
        s.window = f.at(1);
        s.usedPercent = f.at(2).toDouble();
        if (f.size() > 3 && f.at(3) == QLatin1String("stale"))
            s.stale = true;
        out.push_back(s);
    }
    return out;
}

DaemonStatus status(const QJsonObject &extra = {}) {
    QJsonObject o = QJsonDocument::fromJson(test::minimalStatusBody()).object();
    for (auto it = extra.begin(); it != extra.end(); ++it)
        o.insert(it.key(), it.value());
    auto decoded = json::decode<DaemonStatus>(o);
    return decoded.value_or(DaemonStatus{});
}

} // namespace

class PopoverPanelsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void headline_data();
    void headline();
    void rows();
    void todayColumns_data();
    void todayColumns();
    void signInPanel_data();
    void signInPanel();
};

void PopoverPanelsTest::headline_data() {
    QTest::addColumn<QString>("readings");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("tone");
    QTest::addColumn<QString>("remaining");
    QTest::addColumn<QString>("detail");
    const auto row = [](const char *name, const char *r, const char *text, Tone tone,
                        const char *remaining, const char *detail) {
        QTest::newRow(name) << QString::fromUtf8(r) << QString::fromUtf8(text) << int(tone)
                            << QString::fromUtf8(remaining) << QString::fromUtf8(detail);
    };
    row("79.9 is fine", "claude-code session 79.9", "You can keep working", Tone::Green, "20% left",
        "Claude Code · 5h window · provider reported");
    row("80 warns", "claude-code week 80", "Watch your remaining headroom", Tone::Orange,
        "20% left", "Claude Code · Weekly · provider reported");
    row("95 is almost at the limit", "codex week 95", "Almost at a provider limit", Tone::Red,
        "5% left", "Codex · Weekly · provider reported");
    row("96.4 leaves 4%", "claude-code week 96.4", "Almost at a provider limit", Tone::Red,
        "4% left", "Claude Code · Weekly · provider reported");
    row("a tie names the earlier reading", "codex week 85; claude-code session 85",
        "Watch your remaining headroom", Tone::Orange, "15% left",
        "Codex · Weekly · provider reported");
    row("only a Codex 5-hour reading: stale headline", "codex session 99",
        "Provider reading is stale", Tone::Secondary, "", "");
    row("the Codex 5-hour window never decides", "codex session 99; claude-code week 50",
        "You can keep working", Tone::Green, "50% left",
        "Claude Code · Weekly · provider reported");
    row("stale readings still count here", "claude-code week 97 stale; codex week 10",
        "Almost at a provider limit", Tone::Red, "3% left",
        "Claude Code · Weekly · provider reported");
    row("over 100 leaves 0%", "claude-code week 103", "Almost at a provider limit", Tone::Red,
        "0% left", "Claude Code · Weekly · provider reported");
    row("unknown provider as it stands", "gemini daily 40", "You can keep working", Tone::Green,
        "60% left", "gemini · daily · provider reported");
    row("80.5 shows 81%, so 19% left", "claude-code week 80.5", "Watch your remaining headroom",
        Tone::Orange, "19% left", "Claude Code · Weekly · provider reported");
}

void PopoverPanelsTest::headline() {
    QFETCH(QString, readings);
    QFETCH(QString, text);
    QFETCH(int, tone);
    QFETCH(QString, remaining);
    QFETCH(QString, detail);
    DaemonStatus s = status();
    s.providerLimits = ::readings(readings);
    const PanelContext context{QDateTime::fromMSecsSinceEpoch(1795435200000, QTimeZone::utc()),
                               QLocale::c(), QTimeZone::utc()};
    const view::Limits limits = limitsPanel(s, context);
    QVERIFY(limits.hasReadings);
    const view::Headline &h = limits.headline;
    QCOMPARE(h.text, text);
    QCOMPARE(h.color, toneColor(Tone(tone)));
    QCOMPARE(h.remaining, remaining);
    QCOMPARE(h.detail, detail);
    // What is left and the deciding row's figure add up to a hundred.
    if (!remaining.isEmpty() && !remaining.startsWith(u'0')) {
        bool rowFound = false;
        for (const view::LimitGroup &g : limits.groups)
            for (const view::LimitRow &row : g.rows)
                if (detail.startsWith(g.heading.section(QStringLiteral("AI tool: "), -1) +
                                      QStringLiteral(" · ") + row.windowName + u' ')) {
                    rowFound = true;
                    QCOMPARE(QStringView(row.percent).chopped(1).toInt() +
                                 QStringView(remaining).left(remaining.indexOf(u'%')).toInt(),
                             100);
                }
        QVERIFY2(rowFound, qPrintable(detail));
    }
}

void PopoverPanelsTest::rows() {
    DaemonStatus s = status();
    s.providerLimits = readings(QStringLiteral(
        "codex week 120; gemini daily 40; codex session 30 stale; claude-code week_scoped 12"));
    (*s.providerLimits)[0].resetsAtMs = 1795435200000.0 + 3.5 * 3600 * 1000;
    CodexResetCreditsStatus credits;
    credits.availableCount = 1;
    s.codexResetCredits = credits;
    const PanelContext context{QDateTime::fromMSecsSinceEpoch(1795435200000, QTimeZone::utc()),
                               QLocale(QLocale::English, QLocale::UnitedStates),
                               QTimeZone("Asia/Tokyo")};
    const auto groups = limitGroups(s, context);
    QCOMPARE(groups.size(), size_t(3));
    QCOMPARE(groups[0].heading, QStringLiteral("Codex"));
    QCOMPARE(groups[1].heading, QStringLiteral("AI tool: gemini"));
    QCOMPARE(groups[2].heading, QStringLiteral("Claude Code"));

    // Codex: the 5-hour row first, stale and dimmed; the weekly row capped at a full bar.
    const auto &codex = groups[0];
    QCOMPARE(codex.credits.text, QStringLiteral("1 reset ticket"));
    QVERIFY(codex.credits.expiry.isEmpty());
    QCOMPARE(codex.credits.help, QStringLiteral("1 Codex reset ticket available"));
    QCOMPARE(codex.rows[0].windowName, QStringLiteral("5h window"));
    QVERIFY(codex.rows[0].symbol.isEmpty());
    QVERIFY(codex.rows[0].stale);
    QCOMPARE(codex.rows[0].help, QStringLiteral("Provider reading is stale"));
    QCOMPARE(codex.rows[1].symbol, QStringLiteral("image://symbol/calendar"));
    QCOMPARE(codex.rows[1].fraction, 1.0);
    QCOMPARE(codex.rows[1].percent, QStringLiteral("120%"));
    QCOMPARE(codex.rows[1].resets, QStringLiteral("resets in 3 hr."));
    QCOMPARE(codex.rows[1].help,
             QStringLiteral("Provider rate limit used (account-level, reported by the provider)"));
    QVERIFY(groups[1].credits.text.isEmpty());
    QCOMPARE(groups[2].rows[0].windowName, QStringLiteral("Weekly (model)"));
    QVERIFY(groups[2].rows[0].resets.isEmpty());
}

void PopoverPanelsTest::todayColumns_data() {
    QTest::addColumn<QByteArray>("extra");
    QTest::addColumn<QStringList>("columns");
    QTest::newRow("every token priced, no coding time")
        << QByteArray(R"({"output": 402000, "estCost": 86.2})")
        << QStringList{QStringLiteral("402.0K output tokens"),
                       QStringLiteral("$86.20 API equivalent")};
    QTest::newRow("some unpriced: the subtotal")
        << QByteArray(R"({"estCost": 86.2, "unpricedTokens": 5, "pricedSubtotal": 120.4})")
        << QStringList{QStringLiteral("1.2K output tokens"),
                       QStringLiteral("$120 priced API subtotal")};
    QTest::newRow("no cost known at all: an em dash")
        << QByteArray(R"({"indeterminateTokens": 7})")
        << QStringList{QStringLiteral("1.2K output tokens"),
                       QStringLiteral("— priced API subtotal")};
    QTest::newRow("with coding time: three columns")
        << QByteArray(R"({"attention": {"activeSeconds": 3900, "activeSamples": 260,
                          "period": "2026-11-23", "spanSeconds": 5000}})")
        << QStringList{QStringLiteral("1.2K output tokens"), QStringLiteral("$0.42 API equivalent"),
                       QStringLiteral("1h 5m coding time")};
}

void PopoverPanelsTest::todayColumns() {
    QFETCH(QByteArray, extra);
    QFETCH(QStringList, columns);
    const DaemonStatus s = status(QJsonDocument::fromJson(extra).object());
    QStringList shown;
    for (const view::TodayColumn &c : quonbrix::todayColumns(s))
        shown << c.value + u' ' + c.caption;
    QCOMPARE(shown, columns);
}

void PopoverPanelsTest::signInPanel_data() {
    // The progress as "state|user code|error" ("" for none); what the panel then says, its
    // texts joined by "|", and the header's sign-in button.
    QTest::addColumn<QString>("progress");
    QTest::addColumn<QString>("says");
    QTest::addColumn<QString>("headerButton");
    QTest::newRow("no sign-in: no panel") << ""
                                          << ""
                                          << "Sign in";
    QTest::newRow("waiting for the code") << "pending||"
                                          << "waiting"
                                          << "Signing in (disabled)";
    QTest::newRow("the code to confirm")
        << "pending|WDJB-MJHT|"
        << "Enter this code on the quon approval page:|WDJB-MJHT|Open approval page|Sign in again"
        << "Signing in (disabled)";
    QTest::newRow("denied") << "error||Sign-in was denied."
                            << "Sign-in failed|Sign-in was denied.|Try again"
                            << "Sign in";
    QTest::newRow("a certificate in the message: the terminal way round")
        << "error||Sign-in error: Self-Signed Certificate in chain"
        << "Sign-in failed|Sign-in error: Self-Signed Certificate in chain|Try again|Your network "
           "inspects secure traffic. Finish sign-in from a terminal:|Copy terminal sign-in "
           "command|Paste it in a terminal; this app finishes sign-in after approval."
        << "Sign in";
    QTest::newRow("an error without a message") << "error||"
                                                << "Sign-in failed|Unknown error|Try again"
                                                << "Sign in";
    QTest::newRow("done, the daemon not yet signed in") << "done||"
                                                        << ""
                                                        << "Signing in (disabled)";
}

void PopoverPanelsTest::signInPanel() {
    QFETCH(QString, progress);
    QFETCH(QString, says);
    QFETCH(QString, headerButton);
    std::optional<EnrollProgress> p;
    if (!progress.isEmpty()) {
        const QStringList f = progress.split(u'|');
        p = EnrollProgress{f[0], std::nullopt, std::nullopt, f[0] == QLatin1String("done")};
        if (!f[1].isEmpty())
            p->prompt =
                EnrollPrompt{f[1], QStringLiteral("https://quon.test/a"), std::nullopt, 900};
        if (!f[2].isEmpty())
            p->error = f[2];
    }
    const view::SignIn panel = quonbrix::signInPanel(p);
    QStringList shown;
    if (panel.waiting)
        shown << QStringLiteral("waiting");
    for (const QString &text :
         {panel.promptText, panel.userCode, panel.openPage.label, panel.again.label,
          panel.errorTitle, panel.errorText, panel.retry.label, panel.terminalText,
          panel.copyCommand.label, panel.terminalNote})
        if (!text.isEmpty())
            shown << text;
    QCOMPARE(shown.join(u'|'), says);
    QCOMPARE(panel.shown, !says.isEmpty());
    const view::Button button = headerSignInButton(p);
    QCOMPARE(button.label + (button.enabled ? QString() : QStringLiteral(" (disabled)")),
             headerButton);
}

QTEST_MAIN(PopoverPanelsTest)
#include "test_popover_panels.moc"
