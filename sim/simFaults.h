#pragma once

#include "sim/rmLink.h"

#include <QTimer>

#include <deque>

namespace vexmor::Sim
{

/// How a simulated gateway misbehaves, from now on. Each is independent of the others; the default is to behave.
struct SSimFaults {
    int wrongChecksumEvery = 0; ///< every Nth frame to the host has a wrong checksum; 0: none
    int missingEndEvery = 0;    ///< every Nth frame has another byte in the place of the end marker; 0: none
    QByteArray garbage;         ///< these bytes before every frame
    int cutAt = 0;        ///< every TCP frame in two writes (UDP: two datagrams), the first of so many bytes; 0: whole
    int cutDelayMs = 5;   ///< pause between the two
    int mergeCount = 1;   ///< so many frames are joined into one write; fewer wait for the next
    int replyDelayMs = 0; ///< before each reply
    bool mute = false;    ///< requests are read and not answered; messages still pass
    bool blackHole = false; ///< connections are accepted; nothing is read and nothing said
    bool refuse = false;    ///< connections are refused (those that stand stay up)
};

/// A link that spoils what it sends: the faults of single frames and of the stream. Those of whole requests and
/// connections (`replyDelayMs`, `mute`, `refuse`) belong to the gateway.
class CFaultyLink : public CRmLink
{
    Q_OBJECT

public:
    /// `faults` must outlive the link.
    CFaultyLink(SRmPeer peer, const SSimFaults& faults);

    /// Drops the frame, over TCP and UDP, while SEND_LIMIT bytes wait for the pauses between the pieces of other
    /// frames.
    void send(const QByteArray& frame) override;
    /// Sends an answer, after the delay that is set. Drops it while too many are delayed.
    void reply(const QByteArray& frame);
    qint64 waiting() const override { return CRmLink::waiting() + m_bytesToCome; }
    /// Sends bytes as they are, in a write of their own.
    void sendRaw(const QByteArray& bytes);
    /// Reads, or no longer reads, as the faults now have it.
    void applyFaults() { setReading(!m_faults.blackHole); }

private:
    QByteArray spoiled(QByteArray frame);
    void writeNext();

    const SSimFaults& m_faults;
    int m_frameCount = 0;            ///< Frames sent so far: every Nth one is faulty.
    QByteArray m_merged;             ///< Frames that wait for those they are joined with.
    int m_mergedCount = 0;           ///< Number of these frames.
    std::deque<QByteArray> m_writes; ///< Writes to come, each by itself.
    qint64 m_bytesToCome = 0;        ///< In these writes, with the memory for each.
    QTimer m_pause;                  ///< Between two of them while frames are cut.
    int m_delayed = 0;               ///< Answers that are delayed.
};

} // namespace vexmor::Sim
