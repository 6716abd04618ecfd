#pragma once

#include <QDateTime>

namespace quonbrix {

// Wall-clock source. Everything that compares against "now" takes one of these so tests can
// pin the instant instead of sleeping.
class Clock {
public:
    virtual ~Clock() = default;
    virtual QDateTime now() const = 0;
    // Milliseconds since the Unix epoch, fraction kept where the source has it.
    virtual double nowMs() const { return double(now().toMSecsSinceEpoch()); }
};

class SystemClock final : public Clock {
public:
    QDateTime now() const override { return QDateTime::currentDateTimeUtc(); }
    static const SystemClock &instance();
};

// A clock that only moves when told to.
class ManualClock final : public Clock {
public:
    explicit ManualClock(QDateTime start)
        : m_now(std::move(start)) {}
    QDateTime now() const override { return m_now; }
    void set(QDateTime t) { m_now = std::move(t); }

private:
    QDateTime m_now;
};

} // namespace quonbrix
