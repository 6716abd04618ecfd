#include "trust_store/trust_store.h"

#include "files/private_files.h"
#include "log/log_categories.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSslCertificate>
#include <QStringDecoder>
#include <algorithm>

namespace quonbrix {

namespace {

constexpr QByteArrayView kBeginMarker = "-----BEGIN CERTIFICATE-----";
constexpr QByteArrayView kEndMarker = "-----END CERTIFICATE-----";

constexpr char kItBundleOption[] = "--it-bundle";
constexpr char kSystemBundleOption[] = "--system-bundle";
constexpr char kAnchorsOption[] = "--anchors";
constexpr char kOutputOption[] = "--output";

// Far larger than any real bundle (the distribution's is a few hundred kB); a file beyond this
// is not a certificate bundle and is not worth holding in memory.
constexpr qint64 kMaxInputBytes = qint64(64) << 20;

std::optional<QByteArray> readSmallFile(const QString &path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    QByteArray bytes = file.read(kMaxInputBytes + 1);
    if (bytes.size() > kMaxInputBytes || file.error() != QFileDevice::NoError)
        return std::nullopt;
    return bytes;
}

// An agent's bundle must be text; anything else is skipped like an unreadable file.
std::optional<QByteArray> readUtf8File(const QString &path) {
    std::optional<QByteArray> bytes = readSmallFile(path);
    if (!bytes)
        return std::nullopt;
    QStringDecoder decoder(QStringDecoder::Utf8);
    [[maybe_unused]] const QString text = decoder(*bytes);
    if (decoder.hasError())
        return std::nullopt;
    return bytes;
}

QByteArrayView trimmedRight(QByteArrayView line) {
    while (!line.isEmpty() && (line.back() == ' ' || line.back() == '\t' || line.back() == '\r'))
        line.chop(1);
    return line;
}

bool isBase64Char(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
           c == '/';
}

// The certificate body of one PEM block, decoded. Strict on purpose: a block with a stray
// character, a missing END line or broken padding is damaged and is dropped rather than
// guessed at.
std::optional<QByteArray> decodeFirstBlock(QByteArrayView gathered) {
    QByteArray base64;
    bool inBody = false;
    bool ended = false;
    qsizetype pos = 0;
    while (pos < gathered.size() && !ended) {
        qsizetype nl = gathered.indexOf('\n', pos);
        if (nl < 0)
            nl = gathered.size();
        const QByteArrayView line = trimmedRight(gathered.sliced(pos, nl - pos));
        pos = nl + 1;
        if (!inBody) {
            inBody = line == kBeginMarker;
            continue;
        }
        if (line == kEndMarker) {
            ended = true;
            break;
        }
        for (const char c : line) {
            if (c == ' ' || c == '\t')
                continue;
            if (!isBase64Char(c) && c != '=')
                return std::nullopt;
            base64.append(c);
        }
    }
    if (!ended || base64.isEmpty() || base64.size() % 4 != 0)
        return std::nullopt;
    // Padding only at the very end.
    const qsizetype firstPad = base64.indexOf('=');
    if (firstPad >= 0 &&
        (firstPad < base64.size() - 2 ||
         std::any_of(base64.cbegin() + firstPad, base64.cend(), [](char c) { return c != '='; })))
        return std::nullopt;
    auto decoded = QByteArray::fromBase64Encoding(
        base64, QByteArray::Base64Encoding | QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return std::nullopt;
    return std::move(decoded.decoded);
}

std::optional<QByteArray> reencode(QByteArrayView gathered) {
    const std::optional<QByteArray> der = decodeFirstBlock(gathered);
    if (!der)
        return std::nullopt;
    const QSslCertificate cert(*der, QSsl::Der);
    if (cert.isNull())
        return std::nullopt;
    return cert.toPem();
}

QStringList anchorFiles(const QString &dir) {
    if (dir.isEmpty())
        return {};
    const QDir d(dir);
    QStringList names = d.entryList({QStringLiteral("*.pem"), QStringLiteral("*.crt")},
                                    QDir::Files | QDir::Readable, QDir::Name);
    for (QString &name : names)
        name = d.filePath(name);
    return names;
}

} // namespace

TrustStoreSources TrustStoreSources::forPrivateDir(const QString &privateDir) {
    TrustStoreSources s;
    s.itBundles = {
        // Netskope's Linux client: the combined bundle holds the system roots plus its own.
        QStringLiteral("/opt/netskope/stagent/data/nscacert_combined.pem"),
        QStringLiteral("/opt/netskope/stagent/data/nscacert.pem"),
        QStringLiteral("/etc/ssl/certs/netskope-cert-bundle.pem"),
        QStringLiteral("/Library/Application Support/Netskope/STAgent/data/nscacert.pem"),
        QStringLiteral("/Library/Application Support/Zscaler/cacert.pem"),
    };
    s.systemBundles = {
        QStringLiteral("/etc/ssl/certs/ca-certificates.crt"), // Debian, Ubuntu, Arch, Gentoo
        QStringLiteral("/etc/pki/tls/certs/ca-bundle.crt"),   // Fedora, RHEL
        QStringLiteral("/etc/ssl/ca-bundle.pem"),             // openSUSE
        QStringLiteral("/etc/ssl/cert.pem"),                  // Alpine and others
    };
    s.extraAnchorsDir = privateDir + QStringLiteral("/ca-anchors");
    s.outputDir = privateDir;
    return s;
}

QStringList TrustStoreSources::toArguments() const {
    QStringList args;
    for (const QString &path : itBundles)
        args << QString::fromLatin1(kItBundleOption) << path;
    for (const QString &path : systemBundles)
        args << QString::fromLatin1(kSystemBundleOption) << path;
    if (!extraAnchorsDir.isEmpty())
        args << QString::fromLatin1(kAnchorsOption) << extraAnchorsDir;
    args << QString::fromLatin1(kOutputOption) << outputDir;
    return args;
}

std::optional<TrustStoreSources> TrustStoreSources::fromArguments(const QStringList &args) {
    if (args.size() % 2 != 0)
        return std::nullopt;
    TrustStoreSources s;
    for (qsizetype i = 0; i < args.size(); i += 2) {
        const QString &option = args[i];
        const QString &value = args[i + 1];
        if (option == QLatin1String(kItBundleOption))
            s.itBundles << value;
        else if (option == QLatin1String(kSystemBundleOption))
            s.systemBundles << value;
        else if (option == QLatin1String(kAnchorsOption))
            s.extraAnchorsDir = value;
        else if (option == QLatin1String(kOutputOption))
            s.outputDir = value;
        else
            return std::nullopt;
    }
    // Without a destination there is nothing the build could do.
    if (s.outputDir.isEmpty())
        return std::nullopt;
    return s;
}

namespace truststore {

int certificateCount(QByteArrayView pem) {
    int count = 0;
    for (qsizetype at = pem.indexOf(kBeginMarker); at >= 0;
         at = pem.indexOf(kBeginMarker, at + kBeginMarker.size()))
        ++count;
    return count;
}

std::optional<QByteArray> normalizeCerts(QByteArrayView raw) {
    QByteArray out;
    QByteArray gathered;
    qsizetype pos = 0;
    while (pos < raw.size()) {
        qsizetype nl = raw.indexOf('\n', pos);
        if (nl < 0)
            nl = raw.size();
        const QByteArrayView line = raw.sliced(pos, nl - pos);
        pos = nl + 1;
        if (line.contains(kBeginMarker))
            gathered.clear();
        gathered.append(line).append('\n');
        // What follows an END line stays gathered until the next BEGIN line, as a line-based
        // reader would keep it; a second END line therefore repeats the block before it.
        if (line.contains(kEndMarker)) {
            if (std::optional<QByteArray> pem = reencode(gathered))
                out += *pem;
        }
    }
    if (!out.contains(QByteArrayView("BEGIN CERTIFICATE")))
        return std::nullopt;
    return out;
}

std::optional<QString> build(const TrustStoreSources &sources) {
    for (const QString &path : sources.itBundles) {
        const std::optional<QByteArray> text = readUtf8File(path);
        if (!text || certificateCount(*text) < kMinimumCertificates)
            continue;
        qCInfo(lcTrustStore).noquote()
            << QStringLiteral("[QuonBrix] brixd trust-store: using IT CA bundle ") + path;
        return path;
    }

    QByteArray collected;
    const auto system = std::find_if(sources.systemBundles.cbegin(), sources.systemBundles.cend(),
                                     [](const QString &p) { return QFileInfo(p).isFile(); });
    if (system != sources.systemBundles.cend()) {
        if (const std::optional<QByteArray> text = readSmallFile(*system))
            collected += *text + '\n';
    }
    const QStringList extras = anchorFiles(sources.extraAnchorsDir);
    for (const QString &path : extras) {
        if (const std::optional<QByteArray> text = readSmallFile(path))
            collected += *text + '\n';
    }

    const std::optional<QByteArray> normalized = normalizeCerts(collected);
    if (!normalized) {
        qCWarning(lcTrustStore).noquote()
            << QStringLiteral("[QuonBrix] brixd trust-store: openssl normalize unavailable — "
                              "keeping Bun bundled roots");
        return std::nullopt;
    }
    const int count = certificateCount(*normalized);
    if (count < kMinimumCertificates) {
        qCWarning(lcTrustStore).noquote()
            << QStringLiteral("[QuonBrix] brixd trust-store: only %1 certs exported — keeping "
                              "Bun bundled roots")
                   .arg(count);
        return std::nullopt;
    }

    const QString path = QDir(sources.outputDir).filePath(QLatin1String(kFileName));
    // brixd trusts whatever this file says, so only its owner may change or read it.
    std::optional<QString> failure = files::preparePrivateDir(sources.outputDir);
    if (!failure)
        failure = files::writeOwnerOnly(path, *normalized);
    if (failure) {
        qCWarning(lcTrustStore).noquote()
            << QStringLiteral("[QuonBrix] brixd trust-store: write failed: ") + *failure;
        return std::nullopt;
    }
    qCInfo(lcTrustStore).noquote()
        << QStringLiteral("[QuonBrix] brixd trust-store: %1 normalized certs → %2")
               .arg(count)
               .arg(path);
    return path;
}

} // namespace truststore
} // namespace quonbrix
