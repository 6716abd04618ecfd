#pragma once

// Collects what the code under test logs, from any thread, while still passing every line on to
// the test runner's own handler so it shows up in the test output.

#include <QList>
#include <QMutex>
#include <QMutexLocker>
#include <QStringList>
#include <QtGlobal>
#include <utility>

namespace quonbrix::test {

class LogCapture {
public:
    LogCapture() {
        s_self = this;
        m_previous = qInstallMessageHandler(&LogCapture::handle);
    }
    ~LogCapture() {
        qInstallMessageHandler(m_previous);
        s_self = nullptr;
    }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    // Lines logged under `category` since the last clear(), oldest first.
    QStringList lines(const char *category) const {
        QMutexLocker lock(&m_mutex);
        QStringList out;
        for (const auto &[cat, line] : m_lines) {
            if (cat == QLatin1String(category))
                out << line;
        }
        return out;
    }
    void clear() {
        QMutexLocker lock(&m_mutex);
        m_lines.clear();
    }

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &message) {
        LogCapture *self = s_self;
        if (!self)
            return;
        {
            QMutexLocker lock(&self->m_mutex);
            self->m_lines.append(
                {QString::fromLatin1(context.category ? context.category : ""), message});
        }
        if (self->m_previous)
            self->m_previous(type, context, message);
    }

    static inline LogCapture *s_self = nullptr;
    QtMessageHandler m_previous = nullptr;
    mutable QMutex m_mutex;
    QList<std::pair<QString, QString>> m_lines;
};

} // namespace quonbrix::test
