#include "platform/environment.h"

#include <QDir>
#include <QProcessEnvironment>

namespace quonbrix {

Environment Environment::fromProcess() {
    const QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    QHash<QString, QString> vars;
    const QStringList keys = env.keys();
    for (const QString &key : keys)
        vars.insert(key, env.value(key));
    return Environment(std::move(vars));
}

std::optional<QString> Environment::value(const QString &name) const {
    const auto it = m_vars.constFind(name);
    if (it == m_vars.constEnd())
        return std::nullopt;
    return *it;
}

QString Environment::value(const QString &name, const QString &fallback) const {
    return m_vars.value(name, fallback);
}

QString Environment::homeDir() const {
    const QString home = m_vars.value(QStringLiteral("HOME"));
    return home.isEmpty() ? QDir::homePath() : home;
}

QString Environment::privateDir() const {
    return homeDir() + QStringLiteral("/.quon-brix");
}

QString Environment::consoleBase() const {
    QString base = m_vars.value(QStringLiteral("QUON_CONSOLE_URL"));
    if (!base.startsWith(QLatin1String("http")))
        base = QStringLiteral("https://console.quon.app");
    if (base.endsWith(u'/'))
        base.chop(1);
    return base;
}

} // namespace quonbrix
