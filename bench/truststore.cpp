// What cleaning the CA bundle in-process saves over the pipeline it replaced: awk cutting the
// bundle into blocks and piping each into its own `openssl x509`, all through /bin/sh.
// Both run on the same bundle in the same run (the system bundle unless a path is given), and
// must produce the same bytes.

#include "helpers/openssl_pipeline.h"
#include "supervisor/trust_store.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <vector>

using namespace quonbrix;

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

} // namespace

int main(int argc, char *argv[]) {
    QCoreApplication app(argc, argv);
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
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "bench_truststore: cannot read %s\n", qPrintable(path));
        return 1;
    }
    const QByteArray raw = file.readAll();
    QTemporaryDir scratchDir;
    const QString scratch = scratchDir.filePath(QStringLiteral("raw.pem"));

    std::optional<QByteArray> ours;
    std::optional<QByteArray> theirs;
    const double inProcess = medianMs(21, [&] { ours = truststore::normalizeCerts(raw); });
    const double pipeline =
        medianMs(3, [&] { theirs = test::normalizeWithOpenSslPipeline(raw, scratch); });
    if (!ours || !theirs || *ours != *theirs) {
        std::fprintf(stderr, "bench_truststore: the two cleaners disagree on %s\n",
                     qPrintable(path));
        return 1;
    }

    const double ratio = pipeline / inProcess;
    std::printf("truststore: %s, %d certs in, %d out (identical); awk + openssl x509 pipeline "
                "%.1f ms; in-process QSslCertificate %.2f ms; ratio %.0fx faster (target >= "
                "50x)\n",
                qPrintable(path), truststore::certificateCount(raw),
                truststore::certificateCount(*ours), pipeline, inProcess, ratio);
    return ratio >= 50.0 ? 0 : 1;
}
