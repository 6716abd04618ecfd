// quonbrix-truststore: builds brixd's CA bundle and exits. The tray app runs it instead of
// building the bundle itself, because parsing certificates maps Qt's TLS backend, libssl and
// libcrypto into the process for good, and the tray only ever speaks plain HTTP to 127.0.0.1.
//
//   quonbrix-truststore [--it-bundle PATH]... [--system-bundle PATH]... [--anchors DIR]
//                       --output DIR
//
// Prints the bundle's path on stdout, or nothing when brixd should keep its own roots; exits 0
// either way. The outcome is logged where the app logs (stderr, or the journal). Exit 2: bad
// arguments.

#include "log/log_sink.h"
#include "trust_store/trust_store.h"

#include <QCoreApplication>
#include <QFile>
#include <QStringList>
#include <cstdio>

int main(int argc, char *argv[]) {
    quonbrix::logging::installForThisProcess();
    // No event loop is run, but loading the TLS backend wants an application object.
    QCoreApplication app(argc, argv);
    QStringList args = QCoreApplication::arguments();
    args.removeFirst();
    const std::optional<quonbrix::TrustStoreSources> sources =
        quonbrix::TrustStoreSources::fromArguments(args);
    if (!sources) {
        std::fputs("quonbrix-truststore: usage: quonbrix-truststore [--it-bundle PATH]... "
                   "[--system-bundle PATH]... [--anchors DIR] --output DIR\n",
                   stderr);
        return 2;
    }
    if (const std::optional<QString> path = quonbrix::truststore::build(*sources)) {
        const QByteArray line = QFile::encodeName(*path) + '\n';
        std::fwrite(line.constData(), 1, size_t(line.size()), stdout);
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}
