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
/// When the gateway does not keep up (code 108), the message waits until there is room, for 2 s at most, and those
/// behind it leave late. Any other refusal drops it: what was meant for an earlier moment is never sent later. The
/// first refusal of a series is reported, all are counted, and the sequence goes on.
///
/// Closing an interface may cut off what the gateway has not put on the bus yet, and nothing tells when it has. So the
/// end comes only after a bus at the interface's bit rate has had the time to carry everything, and 100 ms more.
class CSender : public QObject
{
    Q_OBJECT

public:
    enum class ENext { eMessage, eLater, eEnd };
    /// Gives the next message with its time in microseconds (only differences count), if there is one. After eLater the
    /// source calls `goOn` when it has more.
    using Source = std::function<ENext(CanLog::SLogEntry& entry)>;

    /// `speed` 2 sends twice as fast. `run` must outlive the sender.
    CSender(CGatewayRun& run, Source source, double speed);

    /// Starts with the first message. `finished` may be emitted at once.
    void start();
    /// The source, which had nothing to give, has something now.
    void goOn();
    /// True when a message was refused.
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
    std::optional<std::int64_t> m_firstMicroseconds; ///< nothing: no message has come
    bool m_isWaiting = false;                        ///< for the source
    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_waitingSince = -1; ///< ms on the clock since when the gateway takes nothing; -1: it does
    int m_lastCode = 0;         ///< of the last message that was sent or refused
    bool m_hasRefused = false;
    double m_busFreeAt = 0; ///< ms on the clock when the bus can have carried what was sent
};

/// What all commands that send have in common: where to, and what is shown of it.
struct SSending {
    STargetOptions target;
    SShowOptions show;
};

/// Sends all messages of a source; the command ends with it.
EExitCode sendAll(SContext& context, const SSending& options, CSender::Source source, double speed);
/// Sends frames from the standard input as they come, with at least so many milliseconds from one to the next.
EExitCode sendInput(SContext& context, const SSending& options, double interval);

} // namespace vexmor::Apps::Cimctl
