#pragma once

#include <QHash>
#include <QString>
#include <optional>

namespace quonbrix {

// A snapshot of the process environment, passed explicitly so that configuration can be
// exercised in tests without touching the real environment.
class Environment {
public:
    Environment() = default;
    explicit Environment(QHash<QString, QString> vars)
        : m_vars(std::move(vars)) {}

    static Environment fromProcess();

    // Absent when the variable is unset; an empty value is a value.
    std::optional<QString> value(const QString &name) const;
    QString value(const QString &name, const QString &fallback) const;
    bool contains(const QString &name) const { return m_vars.contains(name); }
    void set(const QString &name, const QString &value) { m_vars.insert(name, value); }

    // $HOME, falling back to the password database's idea of it.
    QString homeDir() const;
    // ~/.quon-brix, where the daemon and the app keep their private files.
    QString privateDir() const;
    // The web console: QUON_CONSOLE_URL when it starts with "http" (one trailing "/" removed),
    // else the product's own.
    QString consoleBase() const;

private:
    QHash<QString, QString> m_vars;
};

} // namespace quonbrix
