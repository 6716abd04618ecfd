#include "app/app_core.h"
#include "cli/cli.h"
#include "files/private_files.h"
#include "log/log_categories.h"
#include "log/log_sink.h"
#include "platform/attention_sources.h"
#include "platform/desktop_notifier.h"
#include "platform/environment.h"
#include "platform/helper_programs.h"
#include "platform/lag_probe.h"
#include "platform/single_instance.h"
#include "platform/unix_signals.h"
#include "supervisor/daemon_supervisor.h"
#include "ui/popover_host.h"
#include "ui/popover_presenter.h"
#include "ui/tray_shell.h"

#include <QApplication>
#include <QBuffer>
#include <QDBusConnection>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QSystemTrayIcon>
#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace {

using namespace quonbrix;

// Notification servers want an icon by name or path; the app mark is drawn once into the
// cache rather than installed into an icon theme.
QString notificationIconPath() {
    const QString dir = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) +
                        QStringLiteral("/quonbrix");
    const QString path = dir + QStringLiteral("/quonbrix.png");
    if (!QFileInfo::exists(path) && !files::makePrivatePath(dir)) {
        QByteArray png;
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        TrayIconRenderer::render(IconBadge::None, 4.0).save(&buffer, "PNG");
        files::writeFileAtomically(path, png, 0644);
    }
    return QFileInfo::exists(path) ? path : QString();
}

// Set when a new version was installed and the person asked to run it: the program to run
// once everything of this one (daemon, popover, bus name) is gone.
QByteArray restartInto;

int runTray(int argc, char *argv[]) {
    const Environment env = Environment::fromProcess();
    const QString base = MeterClient::baseFromEnvironment(env);
    if (!MeterClient::isUsableBase(base)) {
        std::fprintf(stderr, "quonbrix: QUON_BRIX_ADMIN_PORT does not make a usable address: %s\n",
                     qUtf8Printable(base));
        return 2;
    }
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("quonbrix"));
    QApplication::setApplicationDisplayName(QStringLiteral("QuonBrix"));
    QApplication::setApplicationVersion(QStringLiteral(QUONBRIX_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("app.quonbrix.QuonBrix"));
    // The popover closing is not the app ending; only Quit is.
    QApplication::setQuitOnLastWindowClosed(false);

    SingleInstance instance(QDBusConnection::sessionBus());
    if (instance.claim() == SingleInstance::Claim::ActivatedOther) {
        qCInfo(lcShell, "[QuonBrix] shell: already running; opened the running instance");
        return 0;
    }

    auto supervisor = std::make_shared<DaemonSupervisor>(DaemonSupervisorOptions::forThisProcess());
    AppCore core(env, supervisor, openAttentionSources(env, QDBusConnection::sessionBus()));
    DesktopNotifier::Options notifierOptions;
    notifierOptions.icon = notificationIconPath();
    DesktopNotifier notifier(QDBusConnection::sessionBus(), notifierOptions);
    core.setNotifier(&notifier);

    TrayShell::Options options;
    options.trayAvailable = QSystemTrayIcon::isSystemTrayAvailable();
    options.canPlaceWindows = !QGuiApplication::platformName().startsWith(QLatin1String("wayland"));
    options.currentDesktop = env.value(QStringLiteral("XDG_CURRENT_DESKTOP"), QString());
    options.popoverProgram = PopoverHost::locate(QCoreApplication::applicationDirPath());
    TrayShell shell(core, options);

    UpdateController::Options updateOptions;
    updateOptions.helper =
        helperProgram(QCoreApplication::applicationDirPath(), QStringLiteral("quonbrix-update"));
    updateOptions.currentVersion = QStringLiteral(QUONBRIX_VERSION);
    updateOptions.feed = updateFeed(env);
    updateOptions.target = QCoreApplication::applicationFilePath();
    updateOptions.kind = installKindFor(updateOptions.target);
    UpdateController updater(updateOptions);
    core.setUpdater(&updater);
    shell.presenter().setUpdater(&updater);
    shell.presenter().setAutostart(Autostart(env, QCoreApplication::applicationFilePath()));
    bool restart = false;
    QObject::connect(&shell.presenter(), &PopoverPresenter::restartRequested, &app, [&restart] {
        restart = true;
        QCoreApplication::quit();
    });
    if (!options.trayAvailable)
        qCInfo(lcShell).noquote() << "[QuonBrix] shell: no system tray;"
                                  << PopoverPresenter::noTrayHint(options.currentDesktop);

    QObject::connect(&instance, &SingleInstance::activationRequested, &shell,
                     &TrayShell::openPopover);
    QObject::connect(&instance, &SingleInstance::signedInElsewhere, &core,
                     &AppCore::signInFinishedElsewhere);
    QObject::connect(&shell, &TrayShell::quitRequested, &app, &QCoreApplication::quit);
    UnixSignalWatcher signalWatcher({SIGINT, SIGTERM, SIGHUP});
    QObject::connect(&signalWatcher, &UnixSignalWatcher::received, &app, &QCoreApplication::quit);
    // Logging out: the session manager may kill us right after this, so stop the daemon now.
    QObject::connect(&app, &QGuiApplication::commitDataRequest, &core, [&core] {
        core.shutdown();
        QCoreApplication::quit();
    });
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &core, [&core] { core.shutdown(); });

    // For measuring: how long the event loop was kept waiting, at worst, over the whole run.
    std::unique_ptr<LagProbe> lagProbe;
    if (env.contains(QStringLiteral("QUON_BRIX_LAG_PROBE")))
        lagProbe = std::make_unique<LagProbe>();

    shell.show();
    core.launch();
    const int code = QApplication::exec();
    core.shutdown();
    if (lagProbe)
        qCInfo(lcShell, "[QuonBrix] shell: largest event-loop delay %lld ms",
               lagProbe->largestDelayMs());
    if (restart)
        restartInto = QFile::encodeName(QCoreApplication::applicationFilePath());
    return code;
}

} // namespace

int main(int argc, char *argv[]) {
    quonbrix::logging::installForThisProcess();
    if (argc <= 1) {
        const int code = runTray(argc, argv);
        if (!restartInto.isEmpty()) {
            // The new executable sits where the old one was.
            ::execl(restartInto.constData(), restartInto.constData(), static_cast<char *>(nullptr));
            std::perror("quonbrix: could not restart into the new version");
        }
        return code;
    }
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("quonbrix"));
    QCoreApplication::setApplicationVersion(QStringLiteral(QUONBRIX_VERSION));
    QStringList args = QCoreApplication::arguments();
    args.removeFirst();
    return quonbrix::cli::run(args, quonbrix::Environment::fromProcess());
}
