#include "platform/lag_probe.h"

#include <algorithm>

namespace quonbrix {

LagProbe::LagProbe(std::chrono::milliseconds interval, QObject *parent)
    : QObject(parent) {
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.setInterval(interval);
    connect(&m_timer, &QTimer::timeout, this, &LagProbe::tick);
    m_since.start();
    m_timer.start();
}

void LagProbe::tick() {
    m_largest = std::max(m_largest, m_since.restart() - qint64(m_timer.interval()));
}

} // namespace quonbrix
