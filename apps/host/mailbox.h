#pragma once

#include "cim/canMessage.h"

#include <QObject>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

namespace vexmor::Apps
{

/// A message that an interface received, sent, or refused to send.
struct SBusRecord {
    std::int64_t microseconds = 0; ///< Time since the epoch, which grows from record to record of an interface.
    Cim::CCanMessage message;
    std::uint16_t source = 0; ///< Number of the interface, chosen by the owner.
    bool sent = false;        ///< True for a message to be sent, false for a received one.
    std::uint8_t code = 0;    ///< Result code of a refused message; else 0.
};

static_assert(sizeof(SBusRecord) <= 24, "hundreds of thousands of them are kept");

/// The errors of one kind that an interface raised since the mailbox was last emptied.
struct SErrorRecord {
    std::int64_t microseconds = 0; ///< Time of the first error, since the epoch.
    std::uint16_t source = 0;
    int error = 0;
    std::uint64_t count = 1;
};

/// The content of a mailbox. Messages that were received before an error are among `records`.
struct SDelivery {
    std::vector<SBusRecord> records;
    std::vector<SErrorRecord> errors;
    std::uint64_t lost = 0; ///< Number of messages that did not fit.

    bool isEmpty() const { return records.empty() && errors.empty() && lost == 0; }
};

/// Collects messages and errors from the threads of interfaces until the owner takes them. Any thread may use it.
///
/// Its memory is bounded: a received message is stored while fewer than `capacity` messages wait, a sent one while
/// fewer than twice as many wait, so that a flood of received messages does not displace sent messages. Messages that
/// do not fit are counted as lost, and errors of one kind are counted together.
class CMailbox : public QObject
{
    Q_OBJECT

public:
    /// Default of `capacity`: ten seconds at 20,000 messages per second.
    static constexpr std::size_t CAPACITY = 200'000;

    explicit CMailbox(std::size_t capacity = CAPACITY) : m_capacity(capacity) {}

    void post(const std::vector<SBusRecord>& records);
    void postError(const SErrorRecord& error);
    /// Replaces the content of `delivery` by the content of the mailbox, which is then empty. The memory of `delivery`
    /// is reused.
    void take(SDelivery& delivery);

Q_SIGNALS:
    /// The mailbox is no longer empty. Emitted in the thread that posted, once until the next `take`.
    void filled();

private:
    template <typename Change>
    void change(const Change& change);

    const std::size_t m_capacity;
    std::mutex m_mutex;
    SDelivery m_content;
};

} // namespace vexmor::Apps
