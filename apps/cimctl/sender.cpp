#include "apps/cimctl/sender.h"

#include "apps/cimctl/frameInput.h"
#include "cim/resultCodes.h"

#include <algorithm>
#include <cmath>

namespace vexmor::Apps::Cimctl
{
namespace
{
constexpr qint64 PATIENCE_MS = 2000;
constexpr qint64 MAX_WAIT_MS = 24LL * 3600 * 1000;
constexpr int RETRY_MS = 5;
constexpr int LINGER_MS = 100;
/// Maximum number of messages per turn of the event loop, so that received messages are processed in between.
constexpr int MAX_PER_TURN = 256;
/// Bits of a frame in addition to its data: an 11-bit frame with 8 data bytes takes up to 135 bits, with all stuff bits
/// and the pause after it.
constexpr double OVERHEAD_BITS = 47;
constexpr double STUFFING = 1.22;
/// Bit rate that is assumed when the rate of the bus is unknown: the default of a gateway.
constexpr int ASSUMED_KBIT = 100;
} // namespace

CSender::CSender(CGatewayRun& run, Source source, double speed)
    : m_run(run), m_source(std::move(source)), m_speed(speed)
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &CSender::onTimeout);
}

void CSender::start()
{
    m_clock.start();
    if (fetchNext()) {
        onTimeout();
    }
}

void CSender::resume()
{
    if (m_isWaiting && fetchNext()) {
        onTimeout();
    }
}

/// Fetches the next message of the source. Returns false when there is none: the sender then waits for the source, or
/// finishes.
bool CSender::fetchNext()
{
    const ENext next = m_source(m_next);
    m_isWaiting = next == ENext::eLater;
    if (next == ENext::eEnd) {
        finish();
    } else if (next == ENext::eMessage && !m_firstMicroseconds) {
        m_firstMicroseconds = m_next.microseconds;
        m_clock.start();
    }
    return next == ENext::eMessage;
}

void CSender::onTimeout()
{
    for (int count = 0; count < MAX_PER_TURN; ++count) {
        const qint64 wait = millisecondsToNext();
        if (wait > 0) {
            m_timer.start(static_cast<int>(wait));
            return;
        }
        if (!sendNext()) {
            m_timer.start(RETRY_MS);
            return;
        }
        if (!fetchNext()) {
            return;
        }
    }
    m_timer.start(0);
}

qint64 CSender::millisecondsToNext() const
{
    const double due = static_cast<double>(m_next.microseconds - *m_firstMicroseconds) / 1000 / m_speed;
    const qint64 wait = std::llround(due) - m_clock.elapsed();
    return std::min(wait, MAX_WAIT_MS); // the next timeout waits for the rest
}

bool CSender::sendNext()
{
    const int code = m_run.gateway().hosted.send(m_next.message);
    if (code == Cim::RC_OK) {
        m_waitingSince = -1;
        m_lastCode = 0;
        noteBusTime();
        return true;
    }
    if (code == Cim::RC_SEND_FAILED) {
        if (m_waitingSince < 0) {
            m_waitingSince = m_clock.elapsed();
        }
        if (m_clock.elapsed() - m_waitingSince < PATIENCE_MS) {
            return false;
        }
    }
    refuse(code);
    return true;
}

void CSender::refuse(int code)
{
    m_hasRefused = true;
    m_run.gateway().summary.countRefused();
    if (code != m_lastCode) {
        m_run.output().reportProblem(m_run.gateway().problemOf(code));
        m_lastCode = code;
    }
}

void CSender::noteBusTime()
{
    const double bits = (OVERHEAD_BITS + 8 * m_next.message.length()) * STUFFING;
    const double now = static_cast<double>(m_clock.elapsed());
    const int rate = m_run.gateway().hosted.canInterface().baudrate();
    m_busFreeAt = std::max(m_busFreeAt, now) + bits / (rate == 0 ? ASSUMED_KBIT : rate);
}

void CSender::finish()
{
    const qint64 wait = std::max<qint64>(0, std::llround(m_busFreeAt) - m_clock.elapsed()) + LINGER_MS;
    QTimer::singleShot(static_cast<int>(wait), this, &CSender::finished);
}

EExitCode sendAll(SContext& context, const SSending& options, CSender::Source source, double speed)
{
    CGatewayRun run(context, options.target);
    CMessagePrinter printer(run, options.show);
    run.open(0);
    CSender sender(run, std::move(source), speed);
    QObject::connect(&sender, &CSender::finished, &run,
                     [&run, &sender] { run.end(sender.hasRefused() ? eRefused : eDone); });
    run.whenAnswered([&sender] { sender.start(); });
    return printer.finish(run.waitForEnd());
}

EExitCode sendInput(SContext& context, const SSending& options, double interval)
{
    CGatewayRun run(context, options.target);
    CMessagePrinter printer(run, options.show);
    CFrameInput input;
    QElapsedTimer clock;
    const auto source = [&, due = 0.0](CanLog::SLogEntry& entry) mutable {
        if (!input.next(entry.message)) {
            return input.hasEnded() ? CSender::ENext::eEnd : CSender::ENext::eLater;
        }
        due = clock.isValid() ? std::max(due + interval * 1000, static_cast<double>(clock.nsecsElapsed()) / 1000) : 0;
        if (!clock.isValid()) {
            clock.start();
        }
        entry.microseconds = static_cast<std::int64_t>(due);
        return CSender::ENext::eMessage;
    };
    run.open(0);
    CSender sender(run, source, 1);
    QObject::connect(&sender, &CSender::finished, &run, [&] {
        if (input.failure()) {
            run.output().reportProblem(*input.failure());
        }
        run.end(input.failure() ? eWrongUsage : sender.hasRefused() ? eRefused : eDone);
    });
    run.whenAnswered([&] {
        QObject::connect(&input, &CFrameInput::changed, &sender, &CSender::resume);
        sender.start();
    });
    return printer.finish(run.waitForEnd());
}

} // namespace vexmor::Apps::Cimctl
