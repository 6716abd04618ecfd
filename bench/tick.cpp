// What one 5-second refresh costs the tray process with the popover closed: read /status from
// the stand-in daemon's typical day, decode it, compare it with the last one, publish it and
// choose the tray icon. The baseline is the least any tick must do: fetch the same body over
// loopback and parse it as JSON. CPU time is the whole process's (the HTTP thread included).

#include "app/app_core.h"
#include "ui/tray_shell.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <cstdio>
#include <sys/resource.h>

using namespace quonbrix;

namespace {

constexpr int ticks = 100;
constexpr double targetMs = 2.0;

double cpuMs() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3 +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3;
}

// CPU milliseconds per round of `round`, which returns once its tick is done.
template <class F> double perTick(F round) {
    for (int i = 0; i < 5; ++i)
        round(); // warm-up: connections, caches
    const double start = cpuMs();
    for (int i = 0; i < ticks; ++i)
        round();
    return (cpuMs() - start) / ticks;
}

} // namespace

int main(int argc, char *argv[]) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("QT_LOGGING_RULES", "quonbrix.*.info=false");
    QApplication app(argc, argv);
    QTemporaryDir home;
    QProcess sim;
    QProcessEnvironment simEnv;
    simEnv.insert(QStringLiteral("HOME"), home.path());
    sim.setProcessEnvironment(simEnv);
    sim.start(QCoreApplication::applicationDirPath() + QStringLiteral("/brixd-sim"),
              {QStringLiteral("run"), QStringLiteral("--port"), QStringLiteral("0"),
               QStringLiteral("--scenario"), QStringLiteral("typical-day")});
    static const QRegularExpression serving(QStringLiteral("http://127\\.0\\.0\\.1:(\\d+)"));
    QByteArray log;
    QElapsedTimer waited;
    waited.start();
    while (!serving.match(QString::fromUtf8(log)).hasMatch() && waited.elapsed() < 10000) {
        sim.waitForReadyRead(200);
        log += sim.readAllStandardError();
    }
    const QString port = serving.match(QString::fromUtf8(log)).captured(1);
    if (port.isEmpty()) {
        std::fprintf(stderr, "tick: brixd-sim did not start\n");
        return 1;
    }
    sim.setProcessChannelMode(QProcess::ForwardedOutputChannel);
    sim.setReadChannel(QProcess::StandardOutput);

    // The app's own pieces, with timers that never fire on their own during the run.
    const Environment env(
        {{QStringLiteral("HOME"), home.path()}, {QStringLiteral("QUON_BRIX_ADMIN_PORT"), port}});
    AppCore core(env, nullptr, {},
                 StatusModel::Intervals{std::chrono::hours(1), std::chrono::hours(1)});
    TrayShell::Options options;
    options.trayAvailable = true;
    TrayShell shell(core, options);
    core.launch();
    QEventLoop loop;
    QObject::connect(&core.model(), &StatusModel::passFinished, &loop, &QEventLoop::quit);
    loop.exec();
    const bool healthy = core.model().hasStatus();
    const double tick = perTick([&] {
        core.model().refresh();
        loop.exec();
    });

    QNetworkAccessManager network;
    const QUrl url(QStringLiteral("http://127.0.0.1:%1/status").arg(port));
    qsizetype bodySize = 0;
    const double baseline = perTick([&] {
        QNetworkReply *reply = network.get(QNetworkRequest(url));
        QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
        loop.exec();
        const QByteArray body = reply->readAll();
        bodySize = body.size();
        QJsonDocument::fromJson(body);
        reply->deleteLater();
    });
    sim.terminate();
    sim.waitForFinished(3000);

    const bool met = healthy && tick < targetMs;
    std::printf("tick: typical-day status %lld bytes; fetch + JSON parse %.3f ms CPU; refresh "
                "tick (fetch, decode, compare, publish, icon) %.3f ms CPU; ratio %.2fx "
                "(target < %.1f ms)%s\n",
                static_cast<long long>(bodySize), baseline, tick, tick / baseline, targetMs,
                healthy ? "" : " — the daemon's status did not decode");
    // A row of the table scripts/bench ends with.
    std::printf("row: CPU per refresh tick (typical day)|%.3f ms (%.2fx fetch + parse)|< %.1f "
                "ms|%s\n",
                tick, tick / baseline, targetMs, met ? "met" : "MISSED");
    return met ? 0 : 1;
}
