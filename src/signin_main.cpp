// quonbrix-signin: signs this computer in with the device flow and stores the tokens in the
// desktop's keyring. `quonbrix signin` hands over to it, and the tray app runs it with
// --events; it is its own program so that neither loads the keyring's libraries or TLS.

#include "account/device_flow_enroller.h"
#include "account/token_store.h"
#include "log/log_sink.h"
#include "platform/console_streams.h"
#include "platform/environment.h"
#include "platform/single_instance.h"
#include "platform/unix_signals.h"
#include "platform/url_opener.h"
#include "json/json_codec.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QEventLoop>
#include <QProcess>
#include <QTextStream>
#include <csignal>

namespace {

using namespace quonbrix;

using console::err;
using console::out;

// `--events` is how the tray app runs a sign-in: one JSON object a line on stdout (the prompt,
// then done or the error) and nothing else; the tray opens the browser itself.
void printEvent(const EnrollEvent &event) {
    out() << json::encodeBytes(event) << Qt::endl;
}

int signin(const QStringList &args, const Environment &env) {
    const QString option = args.value(0);
    if (args.size() > 1 || (args.size() == 1 && option != QLatin1String("--no-browser") &&
                            option != QLatin1String("--events"))) {
        err() << "quonbrix: usage: quonbrix signin [--no-browser]" << Qt::endl;
        return 2;
    }
    const bool events = option == QLatin1String("--events");
    const bool browser = args.isEmpty();
    SecretServiceTokenStore tokens;
    DeviceFlowEnroller::Options options;
    options.env = env;
    options.tokens = &tokens;
    DeviceFlowEnroller enroller(options);
    const UrlOpener opener(QDBusConnection::sessionBus(), [](const QUrl &url) {
        return QProcess::startDetached(QStringLiteral("xdg-open"),
                                       {url.toString(QUrl::FullyEncoded)});
    });
    QEventLoop loop;
    int code = 1;
    UnixSignalWatcher signalWatcher({SIGINT, SIGTERM, SIGHUP});
    QObject::connect(&signalWatcher, &UnixSignalWatcher::received, &loop, [&] {
        enroller.cancel();
        if (!events)
            err() << "Sign-in cancelled" << Qt::endl;
        code = 130;
        loop.quit();
    });
    enroller.run(
        [&](const EnrollPrompt &prompt) {
            if (events)
                return printEvent({prompt, std::nullopt, std::nullopt});
            const QString page = prompt.verificationUriComplete.value_or(prompt.verificationUri);
            out() << "Enter this code on the quon approval page: " << prompt.userCode << '\n'
                  << page << Qt::endl;
            const QUrl url(page, QUrl::StrictMode);
            if (browser && url.isValid() && !url.isRelative())
                opener.open(url, &loop, [](UrlOpenOutcome) {});
        },
        [&] {
            code = 0;
            loop.quit();
            if (events)
                return printEvent({std::nullopt, true, std::nullopt});
            out() << "Signed in" << Qt::endl;
            // A running tray app restarts its daemon so that it picks the sign-in up.
            SingleInstance::reportSignIn(QDBusConnection::sessionBus());
        },
        [&](const QString &message) {
            code = 1;
            loop.quit();
            if (events)
                return printEvent({std::nullopt, std::nullopt, message});
            err() << "Sign-in failed: " << message << Qt::endl;
        });
    loop.exec();
    return code;
}

} // namespace

int main(int argc, char *argv[]) {
    quonbrix::logging::installForThisProcess();
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("quonbrix"));
    QStringList args = QCoreApplication::arguments();
    args.removeFirst();
    return signin(args, Environment::fromProcess());
}
