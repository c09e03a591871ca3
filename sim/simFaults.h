#pragma once

#include "sim/rmLink.h"

#include <QTimer>

#include <deque>

namespace vexmor::Sim
{

/// Faults of a simulated gateway. They are independent of each other; by default there are none.
struct SSimFaults {
    int wrongChecksumEvery = 0; ///< Every Nth frame to a host has a wrong checksum; 0 for none.
    int missingEndEvery = 0;    ///< Every Nth frame has another byte instead of the end marker; 0 for none.
    QByteArray garbage;         ///< Bytes sent before every frame.
    int cutAt = 0;              ///< Size of the first of two writes (UDP: datagrams) per frame; 0 for one write.
    int cutDelayMs = 5;         ///< Pause between the two writes of a cut frame, in ms.
    int mergeCount = 1;         ///< Number of frames joined into one write; the earlier frames wait for the last.
    int replyDelayMs = 0;       ///< Delay of each reply, in ms.
    bool mute = false;          ///< Requests are read but not answered; messages still pass.
    bool blackHole = false;     ///< Connections are accepted, but nothing is read or sent.
    bool refuse = false;        ///< New connections are refused; existing ones stay.
};

/// A link with faults in its frames and its stream. CSimGateway handles the faults of requests and connections
/// (`replyDelayMs`, `mute`, `refuse`).
class CFaultyLink : public CRmLink
{
    Q_OBJECT

public:
    /// `faults` must outlive the link.
    CFaultyLink(SRmPeer peer, const SSimFaults& faults);

    /// Drops the frame when SEND_LIMIT bytes of earlier frames, which were cut, still wait for their pauses. The limit
    /// counts over UDP as well.
    void send(const QByteArray& frame) override;
    /// Sends an answer after the configured delay. Drops it when too many answers wait for their delay.
    void reply(const QByteArray& frame);
    qint64 waiting() const override { return CRmLink::waiting() + m_bytesToWrite; }
    /// Sends bytes without faults, in a write of their own.
    void sendRaw(const QByteArray& bytes);
    /// Starts or stops reading, as the present faults require.
    void applyFaults() { setReading(!m_faults.blackHole); }

private:
    QByteArray withFaults(QByteArray frame);
    void writeNext();

    const SSimFaults& m_faults;
    int m_frameCount = 0;            ///< Number of frames sent so far, of which every Nth is faulty.
    QByteArray m_merged;             ///< Frames that wait to be joined with others.
    int m_mergedCount = 0;           ///< Number of frames in `m_merged`.
    std::deque<QByteArray> m_writes; ///< Writes to be made, one by one.
    qint64 m_bytesToWrite = 0;       ///< Bytes of `m_writes`, and of the memory that each write needs in addition.
    QTimer m_pause;                  ///< Pause between two writes while frames are cut.
    int m_delayed = 0;               ///< Number of answers that wait for their delay.
};

} // namespace vexmor::Sim
