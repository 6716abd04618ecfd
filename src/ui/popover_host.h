#pragma once

#include "popover_link/message_lines.h"
#include "popover_link/popover_records.h"

#include <QElapsedTimer>
#include <QObject>
#include <QProcess>

namespace quonbrix {

// Runs the popover in a process of its own, `quonbrix-popover`, talking to it over its stdin
// and stdout. Qt Quick and the QML engine cost the tray more memory than everything else
// together, and a library once loaded stays loaded; in a separate process they are gone as
// soon as the popover has been closed for a while (it exits on its own) and cost nothing
// before it is first opened. The process is started again on the next open.
class PopoverHost : public QObject {
    Q_OBJECT

public:
    explicit PopoverHost(QString program, QObject *parent = nullptr);
    // Closes the pipe, which ends the popover process.
    ~PopoverHost() override;

    // The popover program, installed or in the build tree (helperProgram).
    static QString locate(const QString &applicationDir);

    // Hands `state` over and then `request`, starting the process first when none runs.
    void show(const view::PopoverState &state, const view::ShowRequest &request);
    // Dropped while no process runs: it is given the whole state when next shown.
    void update(const view::PopoverState &changed);
    void hide();

    bool isRunning() const { return m_process != nullptr; }
    // As the popover last reported it.
    bool isVisible() const { return m_visible; }
    qint64 processId() const;

Q_SIGNALS:
    // After every show or hide request and whenever the window comes or goes (also when the
    // process ends): whether the popover is on screen now.
    void visibilityReported(bool visible);
    void commandReceived(const quonbrix::view::UserCommand &command);
    // The popover is exiting with this text on the clipboard.
    void clipboardHandedOver(const QString &text);

private:
    void ensureRunning();
    void send(const view::ToPopover &message);
    void readReplies();
    void handle(const view::FromPopover &message);
    void processGone();

    QString m_program;
    QProcess *m_process = nullptr;
    view::LineReader m_reader;
    bool m_visible = false;
    QElapsedTimer m_sinceShowRequest;
};

} // namespace quonbrix
