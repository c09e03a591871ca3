#include "sim/simTraffic.h"

#include <QDeadlineTimer>
#include <QtEndian>

#include <algorithm>
#include <utility>

namespace vexmor::Sim
{
namespace
{
constexpr int TICK_MS = 1;
/// Maximum time for sending messages in one turn of the event loop, so that other events are processed as well.
constexpr int TURN_MS = 20;
constexpr int DEVICE_COUNT = 8;
constexpr std::uint16_t FIRST_DEVICE_ID = 0x200;
constexpr double NANOSECONDS_PER_US = 1000.0;
/// A replay makes up for this delay of the computer at most. All messages of a longer delay at once would overflow the
/// socket of a host over UDP.
constexpr double LONGEST_DELAY_US = 20'000;
} // namespace

CSimReplay::CSimReplay(CSimBus& bus) : m_bus(bus)
{
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &CSimReplay::onTimeout);
}

Failure CSimReplay::open(const QString& path, double speed, bool loop)
{
    m_timer.stop();
    m_speed = speed;
    m_loop = loop;
    if (Failure failure = m_reader.open(path)) {
        return failure;
    }
    auto first = m_reader.next();
    if (!first) {
        return first.problem();
    }
    if (!*first) {
        return wrongUsage(QStringLiteral("%1: contains no frame").arg(path));
    }
    m_next = **first;
    m_firstMicroseconds = m_next.microseconds;
    return {};
}

Failure CSimReplay::check()
{
    const auto count = m_reader.countAll();
    if (!count) {
        return count.problem();
    }
    (void)m_reader.next(); // skips the first entry, which was read before
    return {};
}

void CSimReplay::start()
{
    m_played = 0;
    m_clock.start();
    m_timer.start(TICK_MS);
}

void CSimReplay::onTimeout()
{
    const double elapsed = static_cast<double>(m_clock.nsecsElapsed()) / NANOSECONDS_PER_US;
    m_clock.start();
    m_played += std::min(elapsed, LONGEST_DELAY_US) * m_speed;
    const QDeadlineTimer turn(TURN_MS);
    while (static_cast<double>(m_next.microseconds - m_firstMicroseconds) <= m_played && !turn.hasExpired()) {
        ++m_sent;
        m_bus.send(m_next.message);
        if (!advance()) {
            return;
        }
    }
}

bool CSimReplay::advance()
{
    auto read = m_reader.next();
    const bool isNewRound = read && !*read && m_loop && m_reader.rewind();
    auto next = isNewRound ? m_reader.next() : std::move(read);
    if (isNewRound) {
        m_played = 0; // each round starts at time 0
    }
    if (!next || !*next) {
        m_timer.stop();
        Q_EMIT ended(next ? QString() : next.problem().text);
        return false;
    }
    m_next = **next;
    return !isNewRound;
}

CSimGenerator::CSimGenerator(CSimBus& bus) : m_bus(bus)
{
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &CSimGenerator::onTimeout);
}

void CSimGenerator::start(int rate)
{
    m_rate = rate;
    m_clock.start();
    if (rate > 0) {
        m_timer.start(TICK_MS);
    }
}

void CSimGenerator::onTimeout()
{
    const auto due = static_cast<std::uint64_t>(m_clock.elapsed()) * static_cast<std::uint64_t>(m_rate) / 1000;
    const QDeadlineTimer turn(TURN_MS);
    while (m_sent < due && !turn.hasExpired()) {
        // Each device reports its number and its count of reports.
        const auto device = static_cast<unsigned char>(m_sent % DEVICE_COUNT);
        const auto count = static_cast<std::uint32_t>(m_sent / DEVICE_COUNT);
        unsigned char data[8] = {0x10, device};
        qToBigEndian(count, data + 4);
        m_bus.send(Cim::CCanMessage(Cim::CCanId::fromValue(FIRST_DEVICE_ID + device), sizeof data, data));
        ++m_sent;
    }
}

} // namespace vexmor::Sim
