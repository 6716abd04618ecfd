// What the tray copies (the terminal sign-in command) lands on the X clipboard and in the
// primary selection, where another program reads it: the test desktop's X server, and xclip.

#include "app/app_core.h"
#include "support/xsession.h"
#include "ui/popover_presenter.h"
#include "ui/tray_shell.h"

#include <QApplication>
#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace quonbrix;

class ClipboardTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void terminalCommandReachesOtherPrograms();
};

void ClipboardTest::terminalCommandReachesOtherPrograms() {
    if (QGuiApplication::platformName() != QLatin1String("xcb"))
        QSKIP("no test X desktop (tests/support/xsession.sh did not run)");
    QTemporaryDir home;
    AppCore core(Environment({{QStringLiteral("HOME"), home.path()}}), nullptr, {});
    TrayShell::Options options;
    options.trayAvailable = false;
    TrayShell shell(core, options);
    shell.presenter().perform(
        {view::toWire(view::Command::CopySignInCommand), std::nullopt, std::nullopt, std::nullopt});
    // No daemon was found: the command names where an installed one would be.
    const QString expected = u'"' +
                             QDir::cleanPath(QCoreApplication::applicationDirPath() +
                                             QStringLiteral("/../libexec/quonbrix/brixd")) +
                             QStringLiteral("\" enroll");
    for (const char *selection : {"clipboard", "primary"}) {
        QProcess xclip;
        xclip.start(QStringLiteral("xclip"), {QStringLiteral("-o"), QStringLiteral("-selection"),
                                              QString::fromLatin1(selection)});
        // Our event loop has to run to answer xclip's request.
        QTRY_VERIFY_WITH_TIMEOUT(xclip.state() == QProcess::NotRunning, 5000);
        QCOMPARE(QString::fromUtf8(xclip.readAllStandardOutput()), expected);
    }
}

int main(int argc, char *argv[]) {
    // The real X clipboard, not the offscreen platform's in-process one.
    if (const auto display = test::fixtureDisplay()) {
        qputenv("DISPLAY", display->toUtf8());
        qputenv("QT_QPA_PLATFORM", "xcb");
    }
    QApplication app(argc, argv);
    ClipboardTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_clipboard.moc"
