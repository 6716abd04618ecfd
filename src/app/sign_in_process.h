#pragma once

#include "account/enroller.h"

#include <QObject>

#include <QPointer>
#include <QProcess>

namespace quonbrix {

// Runs the device flow in a short-lived `quonbrix-signin --events` and reports what it prints,
// one JSON object a line: the prompt, then done or the error. The account service speaks
// HTTPS, and a process that loaded the TLS libraries keeps them for good; the tray stays
// without them. Nothing secret crosses the pipe: the child stores the tokens itself.
class SignInProcess final : public QObject, public Enroller {
    Q_OBJECT

public:
    static inline const QString helperName = QStringLiteral("quonbrix-signin");

    // `program` is the quonbrix-signin helper.
    explicit SignInProcess(QString program, QObject *parent = nullptr);
    ~SignInProcess() override;

    void run(std::function<void(const EnrollPrompt &)> onPrompt, std::function<void()> onDone,
             std::function<void(const QString &message)> onError) override;
    void cancel() override;

private:
    QString m_program;
    QPointer<QProcess> m_process;
};

} // namespace quonbrix
