#include "cli/app_commands.h"

#include "integrations/autostart.h"
#include "platform/console_streams.h"
#include "platform/helper_programs.h"
#include "update/update_controller.h"

#include <QCoreApplication>
#include <QEventLoop>

namespace quonbrix::cli {

using console::err;
using console::out;

int updateCommand(const QStringList &args, const Environment &env) {
    if (args != QStringList{QStringLiteral("--check")}) {
        err() << "quonbrix: usage: quonbrix update --check" << Qt::endl;
        return 2;
    }
    UpdateController::Options options;
    options.helper =
        helperProgram(QCoreApplication::applicationDirPath(), QStringLiteral("quonbrix-update"));
    options.currentVersion = QStringLiteral(QUONBRIX_VERSION);
    options.feed = updateFeed(env);
    UpdateController updater(options);
    QEventLoop loop;
    QObject::connect(&updater, &UpdateController::changed, &loop, [&] {
        if (updater.phase() != UpdateController::Phase::Checking)
            loop.quit();
    });
    updater.checkNow();
    if (updater.phase() == UpdateController::Phase::Checking)
        loop.exec();
    out() << "Current version: " << options.currentVersion << Qt::endl;
    switch (updater.phase()) {
    case UpdateController::Phase::Available:
        out() << "Newest version:  " << updater.offer()->displayVersion << Qt::endl
              << "Version " << updater.offer()->displayVersion << " is available";
        if (installKindFor(QCoreApplication::applicationFilePath()) == InstallKind::Package)
            out() << " — update with your package manager";
        out() << Qt::endl;
        return 0;
    case UpdateController::Phase::UpToDate:
        out() << "Newest version:  " << options.currentVersion << Qt::endl
              << "QuonBrix is up to date" << Qt::endl;
        return 0;
    default:
        err() << "Could not check for updates — " << updater.failure() << Qt::endl;
        return 1;
    }
}

int autostartCommand(const QStringList &args, const Environment &env) {
    const QString what = args.value(0);
    if (args.size() != 1 ||
        !QStringList{QStringLiteral("on"), QStringLiteral("off"), QStringLiteral("status")}
             .contains(what)) {
        err() << "quonbrix: usage: quonbrix autostart on|off|status" << Qt::endl;
        return 2;
    }
    const Autostart autostart(env, QCoreApplication::applicationFilePath());
    if (what != QLatin1String("status")) {
        if (const auto failure = autostart.setOn(what == QLatin1String("on"))) {
            err() << "Could not change starting at login — " << *failure << Qt::endl;
            return 1;
        }
    }
    if (autostart.isOn())
        out() << "QuonBrix starts at login (" << autostart.path() << ")" << Qt::endl;
    else
        out() << "QuonBrix does not start at login" << Qt::endl;
    return 0;
}

} // namespace quonbrix::cli
