#pragma once

#include "cim/canMessage.h"

#include <QObject>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

namespace vexmor::Apps
{

/// A message that an interface received, sent or refused to send.
struct SBusRecord {
    std::int64_t microseconds = 0; ///< since the epoch; grows from each record of an interface to the next
    Cim::CCanMessage message;
    std::uint16_t source = 0; ///< number of its interface, as the owner chose it
    bool sent = false;        ///< false: received
    std::uint8_t code = 0;    ///< of a message that was not sent, the result code that says why; else 0
};

static_assert(sizeof(SBusRecord) <= 24, "hundreds of thousands of them are kept");

/// Interface errors of one kind, as many as came since the mailbox was emptied.
struct SErrorRecord {
    std::int64_t microseconds = 0; ///< of the first, since the epoch
    std::uint16_t source = 0;
    int error = 0;
    std::uint64_t count = 1;
};

/// The content of a mailbox. What was received before an error stands in `records`.
struct SDelivery {
    std::vector<SBusRecord> records;
    std::vector<SErrorRecord> errors;
    std::uint64_t lost = 0; ///< records that did not fit

    bool isEmpty() const { return records.empty() && errors.empty() && lost == 0; }
};

/// Where the threads of interfaces leave what their owner fetches. Any thread may use it.
///
/// An owner that fetches nothing for a while costs bounded memory: received messages that do not fit are counted as
/// lost, and errors of a kind are counted together. Records of sent messages have as much room again, so that a flood
/// of received ones displaces none of them.
class CMailbox : public QObject
{
    Q_OBJECT

public:
    /// Ten seconds of 20,000 messages per second.
    static constexpr std::size_t CAPACITY = 200'000;

    explicit CMailbox(std::size_t capacity = CAPACITY) : m_capacity(capacity) {}

    void post(const std::vector<SBusRecord>& records);
    void postError(const SErrorRecord& error);
    /// Moves everything to `delivery`, whose memory is used for what comes next.
    void take(SDelivery& delivery);

Q_SIGNALS:
    /// Something came into the empty mailbox. Emitted by the thread that left it: once, until the owner has fetched it.
    void filled();

private:
    const std::size_t m_capacity;
    std::mutex m_mutex;
    SDelivery m_content;
};

} // namespace vexmor::Apps
