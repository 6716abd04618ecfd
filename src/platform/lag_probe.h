#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <chrono>

namespace quonbrix {

// How long the event loop of the thread it lives on was kept from running, at worst: a timer
// that should fire every `interval` and notes how late it comes. Only for measuring (it wakes
// the thread every interval); the tray app runs one when QUON_BRIX_LAG_PROBE is set.
class LagProbe : public QObject {
    Q_OBJECT

public:
    explicit LagProbe(std::chrono::milliseconds interval = std::chrono::milliseconds(50),
                      QObject *parent = nullptr);

    // The largest delay seen so far, in milliseconds.
    qint64 largestDelayMs() const { return m_largest; }

private:
    void tick();

    QTimer m_timer;
    QElapsedTimer m_since;
    qint64 m_largest = 0;
};

} // namespace quonbrix
