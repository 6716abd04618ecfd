// quonbrix-popover: the tray's popover window in a process of its own, started by the tray
// app when the popover is opened (see ui/popover_host.h). Not meant to be run by hand.

#include "log/log_sink.h"
#include "popover/popover_app.h"
#include "popover/portal_color_scheme.h"

#include <QGuiApplication>
#include <QQmlEngineExtensionPlugin>
#include <QQuickWindow>
#include <csignal>

Q_IMPORT_QML_PLUGIN(QuonBrixPlugin)

int main(int argc, char *argv[]) {
    quonbrix::logging::installForThisProcess();
    // A tray that went away is noticed as a failed write, not as a fatal signal.
    std::signal(SIGPIPE, SIG_IGN);
    // The software scene graph keeps the open popover tens of MiB lighter than the GL one,
    // and the popover is plain widgets-like content. QT_QUICK_BACKEND still overrides it.
    if (!qEnvironmentVariableIsSet("QT_QUICK_BACKEND"))
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    QGuiApplication app(argc, argv);
    QGuiApplication::setApplicationName(QStringLiteral("quonbrix"));
    QGuiApplication::setApplicationDisplayName(QStringLiteral("QuonBrix"));
    QGuiApplication::setDesktopFileName(QStringLiteral("app.quonbrix.QuonBrix"));
    QGuiApplication::setQuitOnLastWindowClosed(false);
    // Dark under a dark desktop: the portal says which, whatever the platform theme.
    quonbrix::PortalColorScheme colorScheme(QDBusConnection::sessionBus());
    quonbrix::PopoverApp popover({});
    QObject::connect(&popover, &quonbrix::PopoverApp::finished, &app, &QCoreApplication::quit);
    return QGuiApplication::exec();
}
