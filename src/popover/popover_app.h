#pragma once

#include "popover/popover_view.h"
#include "popover/popover_window.h"
#include "popover_link/message_lines.h"

#include <QObject>
#include <QSocketNotifier>
#include <QTimer>
#include <chrono>

namespace quonbrix {

// The popover process: takes the tray's messages from one pipe, answers on another, and is
// done when the tray goes away (its pipe closes) or the popover has stayed hidden for
// `linger` — a popover opened again soon after comes up at once, and one not needed for a
// while gives all its memory back.
class PopoverApp : public QObject {
    Q_OBJECT

public:
    struct Options {
        int input = 0;  // stdin
        int output = 1; // stdout
        std::chrono::milliseconds linger{30'000};
    };

    explicit PopoverApp(Options options, QObject *parent = nullptr);

    PopoverView &view() { return m_view; }
    PopoverWindow &window() { return m_window; }

Q_SIGNALS:
    void finished();

private:
    void readInput();
    void handle(const view::ToPopover &message);
    void send(const view::FromPopover &message);

    Options m_options;
    PopoverView m_view;
    PopoverWindow m_window;
    QSocketNotifier m_input;
    view::LineReader m_reader;
    QTimer m_linger;
};

} // namespace quonbrix
