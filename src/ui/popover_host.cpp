#include "ui/popover_host.h"

#include "log/log_categories.h"
#include "platform/helper_programs.h"

namespace quonbrix {

namespace {

const QString programName = QStringLiteral("quonbrix-popover");

// A popover that stops reading its pipe is stuck; beyond this much unread state it is ended.
constexpr qint64 maxUnwrittenBytes = qint64(8) << 20;

} // namespace

PopoverHost::PopoverHost(QString program, QObject *parent)
    : QObject(parent)
    , m_program(std::move(program)) {}

PopoverHost::~PopoverHost() {
    if (!m_process)
        return;
    m_process->disconnect(this);
    m_process->closeWriteChannel();
    if (!m_process->waitForFinished(1000))
        m_process->kill();
    m_process->waitForFinished(1000);
}

QString PopoverHost::locate(const QString &applicationDir) {
    return helperProgram(applicationDir, programName);
}

qint64 PopoverHost::processId() const {
    return m_process ? m_process->processId() : 0;
}

void PopoverHost::ensureRunning() {
    if (m_process)
        return;
    m_process = new QProcess(this);
    // The popover logs to the same place as the tray.
    m_process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    connect(m_process, &QProcess::readyReadStandardOutput, this, &PopoverHost::readReplies);
    connect(m_process, &QProcess::finished, this, [this](int code, QProcess::ExitStatus how) {
        if (how == QProcess::CrashExit || code != 0)
            qCWarning(lcPopover, "[QuonBrix] popover: process ended unexpectedly (%s %d)",
                      how == QProcess::CrashExit ? "signal" : "exit code", code);
        else
            qCDebug(lcPopover, "[QuonBrix] popover: process ended after being closed");
        processGone();
    });
    connect(m_process, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error != QProcess::FailedToStart)
            return;
        qCWarning(lcPopover).noquote()
            << QStringLiteral("[QuonBrix] popover: could not be started: %1: %2")
                   .arg(m_program, m_process->errorString());
        processGone();
    });
    m_reader = view::LineReader();
    m_process->start(m_program, {});
}

void PopoverHost::processGone() {
    if (!m_process)
        return;
    m_process->disconnect(this);
    m_process->deleteLater();
    m_process = nullptr;
    // Also when it never came up: whoever asked for it learns that it is not on screen.
    m_visible = false;
    Q_EMIT visibilityReported(false);
}

void PopoverHost::show(const view::PopoverState &state, const view::ShowRequest &request) {
    ensureRunning();
    m_sinceShowRequest.start();
    send({state, std::nullopt, std::nullopt});
    send({std::nullopt, request, std::nullopt});
}

void PopoverHost::update(const view::PopoverState &changed) {
    if (m_process)
        send({changed, std::nullopt, std::nullopt});
}

void PopoverHost::hide() {
    if (m_process)
        send({std::nullopt, std::nullopt, true});
}

void PopoverHost::send(const view::ToPopover &message) {
    if (!m_process)
        return;
    m_process->write(view::encodeLine(message));
    if (m_process->bytesToWrite() > maxUnwrittenBytes) {
        qCWarning(lcPopover, "[QuonBrix] popover: not reading its input, ended");
        m_process->kill();
    }
}

void PopoverHost::readReplies() {
    if (!m_process)
        return;
    const QByteArray bytes = m_process->readAllStandardOutput();
    m_reader.feed(bytes, [this](QByteArrayView line) {
        if (const auto message = view::decodeLine<view::FromPopover>(line))
            handle(*message);
        else
            qCWarning(lcPopover, "[QuonBrix] popover: unreadable message ignored");
    });
}

void PopoverHost::handle(const view::FromPopover &message) {
    if (message.visible) {
        if (*message.visible && m_sinceShowRequest.isValid()) {
            qCDebug(lcPopover, "[QuonBrix] popover: shown %lld ms after it was asked for",
                    m_sinceShowRequest.elapsed());
            m_sinceShowRequest.invalidate();
        }
        m_visible = *message.visible;
        Q_EMIT visibilityReported(m_visible);
    }
    if (message.command)
        Q_EMIT commandReceived(*message.command);
    if (message.clipboard)
        Q_EMIT clipboardHandedOver(*message.clipboard);
}

} // namespace quonbrix
