// The update path end to end: the real quonbrix-update helper reading an appcast from a
// loopback server, the controller's verdict, the settings row's words, and installs that
// must leave the program alone unless the download is exactly the signed one.

#include "support/fake_daemon.h"
#include "ui/setup_panels.h"
#include "update/update_controller.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace quonbrix;
using quonbrix::test::FakeDaemon;
using quonbrix::test::FakeReply;
using Phase = UpdateController::Phase;

namespace {

const QString keyedHelper = QStringLiteral(QUONBRIX_BIN_DIR "/quonbrix-update-testkey");
const QString unkeyedHelper = QStringLiteral(QUONBRIX_BIN_DIR "/quonbrix-update");

QByteArray sign(const QByteArray &data) {
    QTemporaryDir dir;
    QFile file(dir.filePath(QStringLiteral("data")));
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size())
        return {};
    file.close();
    QProcess openssl;
    openssl.start(QStringLiteral("openssl"),
                  {QStringLiteral("pkeyutl"), QStringLiteral("-sign"), QStringLiteral("-rawin"),
                   QStringLiteral("-inkey"), QStringLiteral(QUONBRIX_UPDATE_TEST_KEY),
                   QStringLiteral("-in"), file.fileName()});
    openssl.waitForFinished();
    return openssl.readAllStandardOutput().toBase64();
}

// One <item>; `url` empty leaves the enclosure out.
QByteArray item(const char *version, const QString &url = QStringLiteral("http://x/dl"),
                qint64 length = 100, const QByteArray &signature = "c2ln") {
    QByteArray xml =
        "<item><title>QuonBrix " + QByteArray(version) + "</title><sparkle:version>" + version +
        "</sparkle:version>"
        "<sparkle:releaseNotesLink>https://quonbrix.app/notes</sparkle:releaseNotesLink>";
    if (!url.isEmpty())
        xml += "<enclosure url=\"" + url.toUtf8() + "\" length=\"" + QByteArray::number(length) +
               "\" type=\"application/octet-stream\" sparkle:edSignature=\"" + signature + "\"/>";
    return xml + "</item>";
}

QByteArray feed(const QByteArray &items) {
    return "<?xml version=\"1.0\"?><rss version=\"2.0\" "
           "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel>"
           "<title>QuonBrix</title>" +
           items + "</channel></rss>";
}

FakeReply xmlReply(const QByteArray &body) {
    FakeReply reply = FakeReply::json(body);
    reply.contentType = "application/rss+xml";
    return reply;
}

} // namespace

class UpdateTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void check_data();
    void check();
    void install_data();
    void install();

private:
    void runUntilSettled(UpdateController &updater) {
        QTRY_VERIFY_WITH_TIMEOUT(
            updater.phase() != Phase::Checking && updater.phase() != Phase::Downloading, 15000);
    }
    UpdateController::Options options(const QString &current, const QString &helper,
                                      const QString &target = {}) const {
        UpdateController::Options o;
        o.helper = helper;
        o.currentVersion = current;
        o.feed = QUrl(m_server.base() + QStringLiteral("/appcast.xml"));
        o.kind = InstallKind::SelfContained;
        o.target = target;
        o.timeoutMs = 1000;
        return o;
    }

    FakeDaemon m_server;
};

void UpdateTest::check_data() {
    QTest::addColumn<QString>("current");
    QTest::addColumn<FakeReply>("reply");
    QTest::addColumn<Phase>("phase");
    QTest::addColumn<QString>("rowText"); // the settings row's status and detail

    const auto xml = [](const QByteArray &items) { return xmlReply(feed(items)); };
    QTest::newRow("newest of several, by number")
        << "1.0" << xml(item("1.9.2") + item("1.10.0") + item("1.2.0")) << Phase::Available
        << "Version 1.10.0 is available · Current v1.0 · auto-updates on. Check 127.0.0.1 now "
           "to install the latest.";
    QTest::newRow("same version") << "0.3.0" << xml(item("0.3")) << Phase::UpToDate
                                  << "Up to date · Current v0.3.0 · auto-updates on. Check "
                                     "127.0.0.1 now to install the latest.";
    QTest::newRow("older version") << "0.3.0" << xml(item("0.2.9")) << Phase::UpToDate
                                   << "Up to date · Current v0.3.0 · auto-updates on. Check "
                                      "127.0.0.1 now to install the latest.";
    QTest::newRow("release after its candidate")
        << "1.2.0-rc1" << xml(item("1.2.0-rc2") + item("1.2.0") + item("1.2.0-rc10"))
        << Phase::Available
        << "Version 1.2.0 is available · Current v1.2.0-rc1 · auto-updates on. Check 127.0.0.1 "
           "now to install the latest.";
    QTest::newRow("newest without a download is passed over")
        << "1.0" << xml(item("2.0.0", QString()) + item("1.5.0")) << Phase::Available
        << "Version 1.5.0 is available · Current v1.0 · auto-updates on. Check 127.0.0.1 now to "
           "install the latest.";
    QTest::newRow("version unknown") << "" << xml(item("0.1")) << Phase::Available
                                     << "Version 0.1 is available · Current v? · auto-updates "
                                        "on. Check 127.0.0.1 now to install the latest.";
    QTest::newRow("malformed XML")
        << "1.0" << xmlReply(feed(item("2.0")).chopped(20)) << Phase::CheckFailed
        << "Could not check for updates — the feed is not valid XML (line 1: Premature end of "
           "document)";
    QTest::newRow("HTTP 500") << "1.0" << FakeReply::error(500) << Phase::CheckFailed
                              << "Could not check for updates — the server answered HTTP 500";
    QTest::newRow("server hangs")
        << "1.0" << FakeReply::hang() << Phase::CheckFailed
        << "Could not check for updates — no answer from 127.0.0.1 within 1 s";
}

void UpdateTest::check() {
    QFETCH(QString, current);
    QFETCH(FakeReply, reply);
    QFETCH(Phase, phase);
    QFETCH(QString, rowText);
    m_server.setReply(QStringLiteral("/appcast.xml"), reply);
    UpdateController updater(options(current, keyedHelper));
    QList<QString> announced;
    connect(&updater, &UpdateController::newVersionFound, this,
            [&](const UpdateOffer &offer) { announced << offer.version; });
    updater.checkNow();
    runUntilSettled(updater);
    QCOMPARE(updater.phase(), phase);
    const view::SetupRow row = updateRow(updater);
    QCOMPARE(QStringList({row.status, row.detail})
                 .join(QStringLiteral(" · "))
                 .remove(QRegularExpression(QStringLiteral("^ · "))),
             rowText);
    // Each new version is announced once a run, however often the feed is read.
    updater.checkNow();
    runUntilSettled(updater);
    QCOMPARE(announced.size(), phase == Phase::Available ? 1 : 0);
}

void UpdateTest::install_data() {
    QTest::addColumn<QString>("helper");
    QTest::addColumn<int>("listedExtra"); // bytes the feed lists beyond what is served
    QTest::addColumn<bool>("signedRight");
    QTest::addColumn<bool>("cut");
    QTest::addColumn<QString>("failure"); // empty: installed

    QTest::newRow("good") << keyedHelper << 0 << true << false << QString();
    QTest::newRow("bad signature")
        << keyedHelper << 0 << false << false
        << "the download's signature does not match QuonBrix's key — nothing was installed";
    QTest::newRow("build without a key")
        << unkeyedHelper << 0 << true << false << "this build has no key to check updates with";
    QTest::newRow("shorter than listed")
        << keyedHelper << 10 << true << false
        << "the download is 65536 bytes, not the 65546 the feed lists — nothing was installed";
    QTest::newRow("longer than listed")
        << keyedHelper << -10 << true << false
        << "the download is larger than the 65526 bytes the feed lists — nothing was installed";
    QTest::newRow("cut off") << keyedHelper << 0 << true << true
                             << "the download was cut off after 32768 of 65536 bytes";
}

void UpdateTest::install() {
    QFETCH(QString, helper);
    QFETCH(int, listedExtra);
    QFETCH(bool, signedRight);
    QFETCH(bool, cut);
    QFETCH(QString, failure);

    QByteArray program(65536, Qt::Uninitialized);
    for (int i = 0; i < program.size(); ++i)
        program[i] = char((i * 7919) >> 3);
    const QByteArray signature = sign(signedRight ? program : program + "tampered");
    QVERIFY(!signature.isEmpty());
    m_server.setReply(QStringLiteral("/appcast.xml"),
                      xmlReply(feed(item("9.0.0", m_server.base() + QStringLiteral("/dl"),
                                         program.size() + listedExtra, signature))));
    FakeReply download = cut ? FakeReply::cut(program) : FakeReply::json(program);
    download.contentType = "application/octet-stream";
    m_server.setReply(QStringLiteral("/dl"), download);

    QTemporaryDir dir;
    const QString target = dir.filePath(QStringLiteral("quonbrix"));
    const QByteArray old = "#!/bin/sh\necho old\n";
    QFile file(target);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(old) == old.size());
    file.close();
    QVERIFY(file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                QFileDevice::ExeOwner | QFileDevice::ReadGroup |
                                QFileDevice::ExeGroup));

    UpdateController updater(options(QStringLiteral("1.0"), helper, target));
    updater.checkNow();
    runUntilSettled(updater);
    QCOMPARE(updater.phase(), Phase::Available);
    QCOMPARE(updateRow(updater).button.label, QStringLiteral("Install"));
    updater.install();
    runUntilSettled(updater);

    QFile after(target);
    QVERIFY(after.open(QIODevice::ReadOnly));
    const view::SetupRow row = updateRow(updater);
    if (failure.isEmpty()) {
        QCOMPARE(updater.phase(), Phase::Installed);
        QCOMPARE(after.readAll(), program);
        QCOMPARE(row.button.label, QStringLiteral("Restart to update"));
    } else {
        QCOMPARE(updater.phase(), Phase::InstallFailed);
        QCOMPARE(after.readAll(), old);
        QVERIFY2(row.detail.startsWith(QStringLiteral("Could not install the update — ") + failure),
                 qPrintable(row.detail));
    }
    // Whatever happened, the program keeps its mode and no download is left lying about.
    QCOMPARE(int(after.permissions() & 0x0777), int(file.permissions() & 0x0777));
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden),
             QStringList{QStringLiteral("quonbrix")});
}

QTEST_GUILESS_MAIN(UpdateTest)
#include "test_update.moc"
