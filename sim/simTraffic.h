#pragma once

#include "canlog/candumpLog.h"
#include "sim/simBus.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <cstdint>

namespace vexmor::Sim
{

/// Plays a log in candump's format on a bus with the original timing: all its frames, in order. When this computer is
/// busy, or cannot deliver the messages to all hosts in time, the log takes longer.
class CSimReplay : public QObject
{
    Q_OBJECT

public:
    explicit CSimReplay(CSimBus& bus);

    /// Opens a log for `start`. `speed` is a factor; with `loop`, the log starts again at its end. Fails when the file
    /// cannot be read or contains no frame.
    Failure open(const QString& path, double speed, bool loop);
    /// Reads the whole log that was opened, before `start`. Fails when one of its lines is malformed.
    Failure check();
    void start();
    std::uint64_t sent() const { return m_sent; }

Q_SIGNALS:
    /// The log was played to its end, or to a malformed line, which `error` then describes.
    void ended(const QString& error);

private:
    void onTimeout();
    /// Reads the next entry. Returns false when nothing more is to be sent in this turn.
    bool advance();

    CSimBus& m_bus;
    CanLog::CLogReader m_reader;
    CanLog::SLogEntry m_next;
    QTimer m_timer;
    QElapsedTimer m_clock; ///< Time since the last turn.
    double m_played = 0;   ///< Time since the start of the log, in microseconds of the log.
    std::int64_t m_firstMicroseconds = 0;
    double m_speed = 1;
    bool m_loop = false;
    std::uint64_t m_sent = 0;
};

/// Puts generated messages on a bus at a steady rate: reports of a few devices in turn, each with a counter. When this
/// computer cannot deliver the messages to all hosts in time, they come later.
class CSimGenerator : public QObject
{
    Q_OBJECT

public:
    explicit CSimGenerator(CSimBus& bus);

    /// Starts to send `rate` messages per second; 0 for none. May be called once.
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
