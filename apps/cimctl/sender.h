#pragma once

#include "apps/cimctl/gatewayRun.h"
#include "apps/cimctl/messagePrinter.h"
#include "canlog/candumpLog.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <cstdint>
#include <functional>
#include <optional>

namespace vexmor::Apps::Cimctl
{

/// Sends a sequence of messages at their times over an open interface.
///
/// When the gateway does not keep up (code 108), the message waits until it is accepted, for 2 s at most, and later
/// messages are delayed. After any other code, the message is dropped, so that no message is sent long after its time.
/// The first refusal of a series is reported, all refusals are counted, and the sequence continues.
///
/// An interface that is closed too early may cut off messages that the gateway has not sent to the bus yet, and no
/// signal reports when they were sent. The sequence therefore ends only after a bus at the interface's bit rate could
/// have carried all messages, and 100 ms more.
class CSender : public QObject
{
    Q_OBJECT

public:
    enum class ENext { eMessage, eLater, eEnd };
    /// Delivers the next message with its time in microseconds, of which only differences matter. After the source has
    /// returned eLater, `resume` must be called when it has the next message.
    using Source = std::function<ENext(CanLog::SLogEntry& entry)>;

    /// `speed` is a factor: 2 sends twice as fast. `run` must outlive the sender.
    CSender(CGatewayRun& run, Source source, double speed);

    /// Starts with the first message. `finished` may be emitted at once.
    void start();
    /// Continues after the source has returned eLater. To be called when the source has the next message or has ended.
    void resume();
    /// Returns true when a message was refused.
    bool hasRefused() const { return m_hasRefused; }

Q_SIGNALS:
    void finished();

private:
    qint64 millisecondsToNext() const;
    void onTimeout();
    bool fetchNext();
    bool sendNext();
    void refuse(int code);
    void noteBusTime();
    void finish();

    CGatewayRun& m_run;
    const Source m_source;
    const double m_speed;

    CanLog::SLogEntry m_next;
    std::optional<std::int64_t> m_firstMicroseconds; ///< Time of the first message.
    bool m_isWaiting = false;                        ///< The source has no message yet.
    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_waitingSince = -1; ///< Time on `m_clock` in ms since which the gateway accepts nothing; -1: it accepts.
    int m_lastCode = 0;         ///< Code of the last message that was sent or refused.
    bool m_hasRefused = false;
    double m_busFreeAt = 0; ///< Time on `m_clock`, in ms, by which the bus could have carried all messages.
};

/// The options that all sending commands share: the target, and what is shown of the messages.
struct SSending {
    STargetOptions target;
    SShowOptions show;
};

/// Sends all messages of a source and returns the exit code of the command.
EExitCode sendAll(SContext& context, const SSending& options, CSender::Source source, double speed);
/// Sends frames from the standard input as they arrive, at least `interval` milliseconds apart.
EExitCode sendInput(SContext& context, const SSending& options, double interval);

} // namespace vexmor::Apps::Cimctl
