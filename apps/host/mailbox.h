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
    std::uint16_t source = 0; ///< number of its interface, which the owner chose
    bool sent = false;        ///< false: received
    std::uint8_t code = 0;    ///< result code of a message that was refused; else 0
};

static_assert(sizeof(SBusRecord) <= 24, "hundreds of thousands of them are kept");

/// The errors of one kind that an interface raised since the mailbox was emptied.
struct SErrorRecord {
    std::int64_t microseconds = 0; ///< time of the first error, since the epoch
    std::uint16_t source = 0;
    int error = 0;
    std::uint64_t count = 1;
};

/// The content of a mailbox. Messages that were received before an error are among `records`.
struct SDelivery {
    std::vector<SBusRecord> records;
    std::vector<SErrorRecord> errors;
    std::uint64_t lost = 0; ///< records that did not fit

    bool isEmpty() const { return records.empty() && errors.empty() && lost == 0; }
};

/// Takes messages and errors from the threads of interfaces and keeps them until the owner fetches them. Any thread may
/// use it.
///
/// Its memory is bounded: received messages that do not fit are counted as lost, and errors of one kind are counted
/// together. Records of sent messages have as much room again, so that a flood of received messages displaces none.
class CMailbox : public QObject
{
    Q_OBJECT

public:
    /// Ten seconds of 20,000 messages per second.
    static constexpr std::size_t CAPACITY = 200'000;

    explicit CMailbox(std::size_t capacity = CAPACITY) : m_capacity(capacity) {}

    void post(const std::vector<SBusRecord>& records);
    void postError(const SErrorRecord& error);
    /// Replaces the content of `delivery` by everything that was posted. The memory of `delivery` is used again.
    void take(SDelivery& delivery);

Q_SIGNALS:
    /// The mailbox was empty and is no longer. Emitted in the thread that posted; the next time after `take`.
    void filled();

private:
    template <typename Change>
    void change(const Change& change);

    const std::size_t m_capacity;
    std::mutex m_mutex;
    SDelivery m_content;
};

} // namespace vexmor::Apps
