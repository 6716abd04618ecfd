#include "cli/cli.h"
#include "platform/environment.h"

#include <QCoreApplication>

int main(int argc, char *argv[]) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("quonbrix"));
    QCoreApplication::setApplicationVersion(QStringLiteral(QUONBRIX_VERSION));
    QStringList args = QCoreApplication::arguments();
    args.removeFirst();
    if (args.isEmpty())
        args << QStringLiteral("--help");
    return quonbrix::cli::run(args, quonbrix::Environment::fromProcess());
}
