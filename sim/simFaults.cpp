#include "sim/simFaults.h"

#include <utility>

namespace vexmor::Sim
{
namespace
{
constexpr char NOT_AN_END_MARKER = 0x0A;
constexpr int DELAYED_LIMIT = 10000;    ///< Maximum number of answers that wait for their delay.
constexpr qint64 MEMORY_PER_WRITE = 64; ///< Bytes that a waiting write needs in addition to its data.

bool isNth(int count, int every)
{
    return every > 0 && count % every == 0;
}
} // namespace

CFaultyLink::CFaultyLink(SRmPeer peer, const SSimFaults& faults) : CRmLink(std::move(peer)), m_faults(faults)
{
    m_pause.setSingleShot(true);
    connect(&m_pause, &QTimer::timeout, this, &CFaultyLink::writeNext);
    applyFaults();
}

void CFaultyLink::send(const QByteArray& frame)
{
    if (m_bytesToWrite >= SEND_LIMIT) {
        Q_EMIT frameLost();
        return;
    }
    m_merged += m_faults.garbage + withFaults(frame);
    if (++m_mergedCount < m_faults.mergeCount) {
        return;
    }
    const bool isAlone = std::exchange(m_mergedCount, 0) > 1 || !m_writes.empty();
    const QByteArray bytes = std::exchange(m_merged, {});
    if (m_faults.cutAt > 0 && m_faults.cutAt < bytes.size()) {
        sendRaw(bytes.left(m_faults.cutAt));
        sendRaw(bytes.mid(m_faults.cutAt));
    } else if (isAlone) {
        sendRaw(bytes);
    } else if (!m_faults.blackHole) {
        CRmLink::send(bytes);
    }
}

void CFaultyLink::reply(const QByteArray& frame)
{
    if (m_faults.replyDelayMs == 0) {
        send(frame);
    } else if (m_delayed < DELAYED_LIMIT) {
        ++m_delayed;
        QTimer::singleShot(m_faults.replyDelayMs, this, [this, frame] {
            --m_delayed;
            send(frame);
        });
    }
}

/// Returns a frame with the faults that are due.
QByteArray CFaultyLink::withFaults(QByteArray frame)
{
    const int size = static_cast<int>(frame.size());
    ++m_frameCount;
    if (isNth(m_frameCount, m_faults.wrongChecksumEvery)) {
        frame[size - 2] = static_cast<char>(~frame.at(size - 2));
    }
    if (isNth(m_frameCount, m_faults.missingEndEvery)) {
        frame[size - 1] = NOT_AN_END_MARKER;
    }
    return frame;
}

void CFaultyLink::sendRaw(const QByteArray& bytes)
{
    if (!m_faults.blackHole) {
        m_writes.push_back(bytes);
        m_bytesToWrite += bytes.size() + MEMORY_PER_WRITE;
    }
    if (!m_pause.isActive()) {
        writeNext();
    }
}

void CFaultyLink::writeNext()
{
    flush(); // sends earlier bytes in a write of their own
    while (!m_writes.empty() && !m_pause.isActive()) {
        CRmLink::send(m_writes.front());
        flush();
        m_bytesToWrite -= m_writes.front().size() + MEMORY_PER_WRITE;
        m_writes.pop_front();
        if (m_faults.cutAt > 0) {
            m_pause.start(m_faults.cutDelayMs);
        }
    }
}

} // namespace vexmor::Sim
