#pragma once

// A client's configuration file on a RAM disk when there is one, rewritten for every input.

#include "fuzz_input.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace quonbrix::fuzz {

class ConfigFixture {
public:
    explicit ConfigFixture(const QString &name)
        : m_dir(QDir(QStringLiteral("/dev/shm")).exists()
                    ? QStringLiteral("/dev/shm/quonbrix-fuzz-XXXXXX")
                    : QDir::tempPath() + QStringLiteral("/quonbrix-fuzz-XXXXXX"))
        , m_path(m_dir.filePath(name)) {}

    const QString &path() const { return m_path; }

    void write(const QByteArray &bytes) const {
        QFile file(m_path);
        require(file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
                    file.write(bytes) == bytes.size(),
                "the fixture file could not be written");
    }
    QByteArray read() const {
        QFile file(m_path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

private:
    QTemporaryDir m_dir;
    QString m_path;
};

} // namespace quonbrix::fuzz
