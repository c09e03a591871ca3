#pragma once

#include "canlog/candumpLog.h"
#include "sim/simBus.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <cstdint>

namespace vexmor::Sim
{

/// Plays a log in candump's format on a bus, at its own timing, in order; none is left out. Where the hosts are too
/// many for that timing, it takes longer.
class CSimReplay : public QObject
{
    Q_OBJECT

public:
    explicit CSimReplay(CSimBus& bus);

    /// Opens a log for `start`. `speed` 2 plays it twice as fast; `loop` starts it again at its end. Fails when the
    /// file cannot be read or holds no frame.
    Failure open(const QString& path, double speed, bool loop);
    /// Reads the whole log that was opened, before `start`. Fails when one of its lines is no frame.
    Failure check();
    void start();
    std::uint64_t sent() const { return m_sent; }

Q_SIGNALS:
    /// The log was played to its end, or to a line that is no frame: then `error` names the line.
    void ended(const QString& error);

private:
    void onTimeout();
    bool advance(); ///< false: nothing more in this turn

    CSimBus& m_bus;
    CanLog::CLogReader m_reader;
    CanLog::SLogEntry m_next;
    QTimer m_timer;
    QElapsedTimer m_clock;
    std::int64_t m_firstMicroseconds = 0;
    double m_speed = 1;
    bool m_loop = false;
    std::uint64_t m_sent = 0;
};

/// Puts generated messages on a bus at a steady rate: a few amplifiers that report in turn, each with a counter. Where
/// the hosts are too many for that rate, the messages come later.
class CSimGenerator : public QObject
{
    Q_OBJECT

public:
    explicit CSimGenerator(CSimBus& bus);

    /// Starts with so many messages per second, 0: none. Once.
    void start(int rate);
    std::uint64_t sent() const { return m_sent; }

private:
    void onTimeout();

    CSimBus& m_bus;
    QTimer m_timer;
    QElapsedTimer m_clock;
    int m_rate = 0;
    std::uint64_t m_sent = 0;
};

} // namespace vexmor::Sim
