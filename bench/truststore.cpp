// What building brixd's CA bundle the way the app does it (start the quonbrix-truststore
// helper, which cleans the bundle with QSslCertificate and writes it, and read its answer)
// saves over the pipeline it replaced: awk cutting the bundle into blocks and piping each into
// its own `openssl x509`, all through /bin/sh. Both run on the same bundle in the same run (the
// system bundle unless a path is given) and must produce the same bytes, and the helper's file
// must hold exactly what the in-process build writes.

#include "helpers/openssl_pipeline.h"
#include "supervisor/trust_store_child.h"
#include "trust_store/trust_store.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <vector>

using namespace quonbrix;
using namespace std::chrono_literals;

namespace {

template <class F> double medianMs(int rounds, F &&f) {
    std::vector<double> times;
    for (int r = 0; r < rounds; ++r) {
        QElapsedTimer t;
        t.start();
        f();
        times.push_back(double(t.nsecsElapsed()) / 1e6);
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

QByteArray readAll(const QString &path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

} // namespace

int main(int argc, char *argv[]) {
    QCoreApplication app(argc, argv);
    // One line per build would drown the result; warnings still show.
    const QString quiet = QStringLiteral("quonbrix.truststore.info=false");
    QLoggingCategory::setFilterRules(quiet);
    QString path;
    if (argc > 1) {
        path = QString::fromLocal8Bit(argv[1]);
    } else {
        const QStringList candidates = TrustStoreSources::forPrivateDir(QString()).systemBundles;
        const auto it = std::find_if(candidates.cbegin(), candidates.cend(),
                                     [](const QString &p) { return QFileInfo(p).isFile(); });
        if (it == candidates.cend()) {
            std::fprintf(stderr, "bench_truststore: no system CA bundle found; pass a path\n");
            return 1;
        }
        path = *it;
    }
    if (!test::opensslPipelineAvailable()) {
        std::fprintf(stderr, "bench_truststore: openssl or awk is not installed; the pipeline "
                             "cannot be timed\n");
        return 1;
    }
    const QString appDir = QCoreApplication::applicationDirPath();
    if (!truststore::locateHelper(appDir)) {
        std::fprintf(stderr, "bench_truststore: %s is not built next to the benchmark\n",
                     truststore::kHelperName);
        return 1;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "bench_truststore: cannot read %s\n", qPrintable(path));
        return 1;
    }
    const QByteArray raw = file.readAll();
    QTemporaryDir scratchDir;
    const QString scratch = scratchDir.filePath(QStringLiteral("raw.pem"));

    // Only this bundle, so an inspection agent's file on this machine cannot take over.
    TrustStoreSources sources;
    sources.systemBundles = {path};
    sources.outputDir = scratchDir.filePath(QStringLiteral("child"));
    TrustStoreSources inProcessSources = sources;
    inProcessSources.outputDir = scratchDir.filePath(QStringLiteral("in-process"));
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_LOGGING_RULES"), quiet);

    std::optional<QString> fromChild;
    std::optional<QString> fromInProcess;
    std::optional<QByteArray> theirs;
    const double child =
        medianMs(11, [&] { fromChild = truststore::buildInChild(appDir, sources, env, 10s); });
    const double inProcess =
        medianMs(11, [&] { fromInProcess = truststore::build(inProcessSources); });
    const double pipeline =
        medianMs(3, [&] { theirs = test::normalizeWithOpenSslPipeline(raw, scratch); });
    const QByteArray ours = fromChild ? readAll(*fromChild) : QByteArray();
    if (!fromChild || !fromInProcess || !theirs || ours != readAll(*fromInProcess) ||
        ours != *theirs) {
        std::fprintf(stderr,
                     "bench_truststore: the helper, the in-process build and the "
                     "pipeline disagree on %s\n",
                     qPrintable(path));
        return 1;
    }

    const double ratio = pipeline / child;
    std::printf("truststore: %s, %d certs in, %d out (identical); awk + openssl x509 pipeline "
                "%.1f ms; %s helper (start, build, write, answer) %.1f ms (in-process build "
                "%.1f ms); ratio %.0fx faster (target >= 50x)\n",
                qPrintable(path), truststore::certificateCount(raw),
                truststore::certificateCount(ours), pipeline, truststore::kHelperName, child,
                inProcess, ratio);
    // A row of the table scripts/bench ends with.
    std::printf("row: trust store vs awk + openssl|%.0fx faster|>= 50x|%s\n", ratio,
                ratio >= 50.0 ? "met" : "MISSED");
    return ratio >= 50.0 ? 0 : 1;
}
