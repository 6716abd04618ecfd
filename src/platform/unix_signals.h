#pragma once

#include <QObject>
#include <initializer_list>

class QSocketNotifier;

namespace quonbrix {

// Turns SIGINT/SIGTERM/SIGHUP into a Qt signal on the thread that made the watcher, through a
// self-pipe, so that shutdown runs as ordinary event-loop code and not inside a signal handler.
// One watcher per process.
class UnixSignalWatcher : public QObject {
    Q_OBJECT

public:
    explicit UnixSignalWatcher(std::initializer_list<int> signalNumbers, QObject *parent = nullptr);
    ~UnixSignalWatcher() override;

Q_SIGNALS:
    void received(int signalNumber);

private:
    void drain();
    QSocketNotifier *m_notifier = nullptr;
};

} // namespace quonbrix
