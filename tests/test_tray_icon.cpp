#include "support/fixtures.h"
#include "ui/tray_icon.h"

#include "daemon_link/records.h"
#include "json/json_codec.h"

#include <QGuiApplication>
#include <QTest>

using namespace quonbrix;

Q_DECLARE_METATYPE(quonbrix::IconBadge)

namespace {

ProviderLimitSnapshot reading(const char *source, const char *window, double used,
                              std::optional<bool> stale = {}) {
    ProviderLimitSnapshot s;
    s.source = QString::fromLatin1(source);
    s.window = QString::fromLatin1(window);
    s.usedPercent = used;
    s.stale = stale;
    return s;
}

} // namespace

class TrayIconTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void badgeChoice_data();
    void badgeChoice();
    void rendering_data();
    void rendering();
};

void TrayIconTest::badgeChoice_data() {
    QTest::addColumn<std::vector<ProviderLimitSnapshot>>("limits");
    QTest::addColumn<bool>("hasStatus");
    QTest::addColumn<IconBadge>("badge");
    using V = std::vector<ProviderLimitSnapshot>;
    QTest::newRow("no status") << V{} << false << IconBadge::None;
    QTest::newRow("no readings") << V{} << true << IconBadge::None;
    QTest::newRow("only reading stale at 97")
        << V{reading("claude-code", "week", 97, true)} << true << IconBadge::None;
    QTest::newRow("79.9 is fine") << V{reading("claude-code", "week", 79.9)} << true
                                  << IconBadge::None;
    QTest::newRow("exactly 80 warns")
        << V{reading("claude-code", "week", 80)} << true << IconBadge::Warning;
    QTest::newRow("exactly 95 is critical")
        << V{reading("claude-code", "session", 95, false)} << true << IconBadge::Critical;
    QTest::newRow("codex session counts for the icon")
        << V{reading("claude-code", "week", 10), reading("codex", "session", 96)} << true
        << IconBadge::Critical;
    QTest::newRow("stale high, fresh warning")
        << V{reading("codex", "week", 99, true), reading("claude-code", "week", 85)} << true
        << IconBadge::Warning;
}

void TrayIconTest::badgeChoice() {
    QFETCH(std::vector<ProviderLimitSnapshot>, limits);
    QFETCH(bool, hasStatus);
    QFETCH(IconBadge, badge);
    std::optional<DaemonStatus> status;
    if (hasStatus) {
        status = json::decode<DaemonStatus>(quonbrix::test::minimalStatusBody());
        QVERIFY(status);
        if (!limits.empty())
            status->providerLimits = limits;
    }
    QCOMPARE(iconBadgeFor(status), badge);
}

void TrayIconTest::rendering_data() {
    QTest::addColumn<IconBadge>("badge");
    QTest::addColumn<qreal>("dpr");
    for (const qreal dpr : {1.0, 1.5, 2.0}) {
        const QByteArray scale = QByteArray::number(dpr);
        QTest::newRow("normal @" + scale) << IconBadge::None << dpr;
        QTest::newRow("warning @" + scale) << IconBadge::Warning << dpr;
        QTest::newRow("critical @" + scale) << IconBadge::Critical << dpr;
    }
}

void TrayIconTest::rendering() {
    QFETCH(IconBadge, badge);
    QFETCH(qreal, dpr);
    const QImage image = TrayIconRenderer::render(badge, dpr);
    const int px = qRound(22 * dpr);
    QCOMPARE(image.size(), QSize(px, px));
    QCOMPARE(image.deviceIndependentSize(), QSizeF(22, 22));
    // The tray's icon holds every scale, so no screen gets a blurred one.
    QCOMPARE(TrayIconRenderer().icon(badge).availableSizes().size(), 3);

    // Rounded corners leave the very corners see-through.
    const int last = px - 1;
    for (const QPoint corner : {QPoint(0, 0), QPoint(last, 0), QPoint(0, last), QPoint(last, last)})
        QCOMPARE(qAlpha(image.pixel(corner)), 0);

    // The badge's centre: (14 + 3.5, 1 + 3.5) logical points.
    const QColor centre = image.pixelColor(QPointF(17.5 * dpr, 4.5 * dpr).toPoint());
    if (badge == IconBadge::None) {
        QVERIFY2(centre.red() < 120, qPrintable(centre.name())); // the dark tile, no dot
    } else {
        const QColor expected = badgeColor(badge);
        QVERIFY2(qAbs(centre.red() - expected.red()) <= 8 &&
                     qAbs(centre.green() - expected.green()) <= 8 &&
                     qAbs(centre.blue() - expected.blue()) <= 8,
                 qPrintable(centre.name()));
    }

    // The wave is drawn: its left half holds bright, blue-dominant gradient pixels.
    int bright = 0;
    for (int y = 0; y < px; ++y)
        for (int x = 0; x < px / 2; ++x)
            bright += image.pixelColor(x, y).blue() > 200 ? 1 : 0;
    QVERIFY2(bright > 4 * dpr * dpr, qPrintable(QString::number(bright)));
}

QTEST_MAIN(TrayIconTest)
#include "test_tray_icon.moc"
