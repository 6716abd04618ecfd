// quonbrix-update: reads the update feed and installs a new version, for the tray app and for
// `quonbrix update`. It is its own short-lived program because it speaks HTTPS and checks
// signatures with libcrypto, which a long-running tray would otherwise keep loaded for good.
//
//   quonbrix-update check --feed URL [--timeout-ms N]
//   quonbrix-update install --url URL --length BYTES --signature BASE64 --target PATH
//                           [--timeout-ms N]
//
// Each prints JSON lines: {"newest": …}, {"received": …, "total": …}, {"installed": true},
// or {"error": "…"}; the exit status is 0 on success.

#include "files/private_files.h"
#include "log/log_sink.h"
#include "platform/console_streams.h"
#include "update/appcast.h"
#include "update/signature.h"
#include "json/json_codec.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QUrl>

namespace {

using namespace quonbrix;

constexpr qint64 maxFeedBytes = 4 * 1024 * 1024;

void print(const UpdateEvent &event) {
    console::out() << json::encodeBytes(event) << Qt::endl;
}

int fail(const QString &reason) {
    UpdateEvent event;
    event.error = reason;
    print(event);
    return 1;
}

struct Fetched {
    QByteArray body;
    QString error;
};

// Fetches `url` into memory, refusing more than `limit` bytes. `progress` sees each step.
Fetched fetch(const QUrl &url, qint64 limit, int timeoutMs,
              const std::function<void(qint64, qint64)> &progress = {}) {
    Fetched result;
    if (url.isLocalFile()) {
        QFile file(url.toLocalFile());
        if (!file.open(QIODevice::ReadOnly))
            result.error = QStringLiteral("%1: %2").arg(url.toLocalFile(), file.errorString());
        else if (file.size() > limit)
            result.body = file.read(limit + 1); // too big: the caller sees more than it allows
        else
            result.body = file.readAll();
        if (progress && result.error.isEmpty())
            progress(result.body.size(), result.body.size());
        return result;
    }
    QNetworkAccessManager network;
    QNetworkRequest request(url);
    // An inactivity limit: a slow download that keeps moving is not cut off.
    request.setTransferTimeout(timeoutMs);
    request.setHeader(QNetworkRequest::UserAgentHeader,
                      QStringLiteral("QuonBrix/" QUONBRIX_VERSION));
    QNetworkReply *reply = network.get(request);
    QEventLoop loop;
    bool tooBig = false;
    QObject::connect(reply, &QNetworkReply::readyRead, &loop, [&] {
        result.body += reply->readAll();
        if (result.body.size() > limit) {
            tooBig = true;
            reply->abort();
        }
    });
    QObject::connect(reply, &QNetworkReply::downloadProgress, &loop,
                     [&](qint64 received, qint64 total) {
                         if (progress)
                             progress(received, total);
                     });
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    loop.exec();
    if (!tooBig && reply->isOpen())
        result.body += reply->readAll();
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    // Too big is no error here: the caller sees the size and says so.
    if (tooBig)
        result.error.clear();
    else if (status >= 400)
        result.error = QStringLiteral("the server answered HTTP %1").arg(status);
    else if (reply->error() == QNetworkReply::OperationCanceledError)
        result.error = QStringLiteral("no answer from %1 within %2 s")
                           .arg(url.host())
                           .arg(qMax(1, timeoutMs / 1000));
    else if (reply->error() != QNetworkReply::NoError)
        result.error = reply->errorString();
    delete reply;
    return result;
}

int check(const QUrl &feed, int timeoutMs) {
    if (!feed.isValid() || feed.scheme().isEmpty())
        return fail(QStringLiteral("the feed address is not a URL"));
    const Fetched fetched = fetch(feed, maxFeedBytes, timeoutMs);
    if (!fetched.error.isEmpty())
        return fail(fetched.error);
    if (fetched.body.size() > maxFeedBytes)
        return fail(QStringLiteral("the feed is larger than %1 MB").arg(maxFeedBytes >> 20));
    const auto newest = newestInAppcast(fetched.body);
    if (const auto *reason = std::get_if<QString>(&newest))
        return fail(*reason);
    UpdateEvent event;
    event.newest = std::get<UpdateOffer>(newest);
    print(event);
    return 0;
}

int install(const QUrl &url, qint64 length, const QString &signatureText, const QString &target,
            int timeoutMs) {
    const QByteArray publicKey =
        QByteArray::fromBase64(QByteArrayLiteral(QUONBRIX_UPDATE_PUBLIC_KEY));
    if (publicKey.size() != 32)
        return fail(QStringLiteral("this build has no key to check updates with"));
    if (!url.isValid() || length <= 0 || target.isEmpty())
        return fail(QStringLiteral("the update's address or size is missing"));
    const auto signature = QByteArray::fromBase64Encoding(signatureText.toLatin1(),
                                                          QByteArray::AbortOnBase64DecodingErrors);
    if (!signature || signature.decoded.size() != 64)
        return fail(QStringLiteral("the feed's signature for the download is malformed"));

    int lastPercent = -1;
    const Fetched fetched = fetch(url, length, timeoutMs, [&](qint64 received, qint64) {
        const int percent = int(std::min<qint64>(received, length) * 100 / length);
        if (percent == lastPercent)
            return;
        lastPercent = percent;
        UpdateEvent event;
        event.received = received;
        event.total = length;
        print(event);
    });
    if (fetched.body.size() > length)
        return fail(QStringLiteral("the download is larger than the %1 bytes the feed lists — "
                                   "nothing was installed")
                        .arg(length));
    if (!fetched.error.isEmpty())
        return fail(QStringLiteral("the download was cut off after %1 of %2 bytes (%3) — "
                                   "nothing was installed")
                        .arg(fetched.body.size())
                        .arg(length)
                        .arg(fetched.error));
    if (fetched.body.size() != length)
        return fail(QStringLiteral("the download is %1 bytes, not the %2 the feed lists — "
                                   "nothing was installed")
                        .arg(fetched.body.size())
                        .arg(length));
    if (!isSignedBy(fetched.body, signature.decoded, publicKey))
        return fail(QStringLiteral("the download's signature does not match QuonBrix's key — "
                                   "nothing was installed"));
    // A rename over the running program: it keeps running from the old file, and the next
    // start runs the new one. The old file's mode carries over.
    if (const auto failure = files::writeFileAtomically(target, fetched.body, 0755))
        return fail(QStringLiteral("could not replace %1: %2 — the installed program is "
                                   "unchanged")
                        .arg(target, *failure));
    UpdateEvent event;
    event.installed = true;
    print(event);
    return 0;
}

} // namespace

int main(int argc, char *argv[]) {
    quonbrix::logging::installForThisProcess();
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("quonbrix"));
    QCommandLineParser parser;
    const QCommandLineOption feed(QStringLiteral("feed"), {}, QStringLiteral("url"));
    const QCommandLineOption url(QStringLiteral("url"), {}, QStringLiteral("url"));
    const QCommandLineOption length(QStringLiteral("length"), {}, QStringLiteral("bytes"));
    const QCommandLineOption signature(QStringLiteral("signature"), {}, QStringLiteral("base64"));
    const QCommandLineOption target(QStringLiteral("target"), {}, QStringLiteral("path"));
    const QCommandLineOption timeout(QStringLiteral("timeout-ms"), {}, QStringLiteral("ms"),
                                     QStringLiteral("30000"));
    parser.addOptions({feed, url, length, signature, target, timeout});
    parser.addPositionalArgument(QStringLiteral("command"), QStringLiteral("check or install"));
    if (!parser.parse(QCoreApplication::arguments()) || parser.positionalArguments().size() != 1)
        return fail(QStringLiteral("usage: quonbrix-update check|install …"));
    bool ok = false;
    const int timeoutMs = parser.value(timeout).toInt(&ok);
    const int waitMs = ok && timeoutMs > 0 ? timeoutMs : 30000;
    const QString command = parser.positionalArguments().constFirst();
    if (command == QLatin1String("check"))
        return check(QUrl(parser.value(feed), QUrl::StrictMode), waitMs);
    if (command == QLatin1String("install"))
        return install(QUrl(parser.value(url), QUrl::StrictMode), parser.value(length).toLongLong(),
                       parser.value(signature), parser.value(target), waitMs);
    return fail(QStringLiteral("unknown command '%1'").arg(command));
}
