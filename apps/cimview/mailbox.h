#pragma once

#include "apps/cimview/traceRecord.h"

#include <cstddef>
#include <mutex>
#include <vector>

namespace vexmor::Apps::Cimview
{

/// Interface errors of one kind that came in one after the other.
struct SErrorRecord {
    std::int64_t microseconds = 0; ///< of the first, since the epoch
    std::uint16_t source = 0;
    int error = 0;
    std::uint64_t count = 1;
};

/// What lay in the mailbox.
struct SDelivery {
    std::vector<STraceRecord> records;
    std::vector<SErrorRecord> errors;
    std::uint64_t lost = 0; ///< messages that found it full
};

/// Where the threads of the interfaces leave what the window fetches some 25 times a second. Any thread may use it.
///
/// A window that fetches nothing (the system was suspended in the middle of it, say) costs bounded memory: what finds
/// the mailbox full is counted as lost. Errors always find room: those of a kind are counted together.
class CMailbox
{
public:
    /// Ten seconds of 20,000 messages a second.
    static constexpr std::size_t CAPACITY = 200000;

    explicit CMailbox(std::size_t capacity = CAPACITY) : m_capacity(capacity) {}

    void post(const STraceRecord& record);
    void postError(const SErrorRecord& error);
    /// Takes everything; `delivery` gives its memory for what comes next.
    void take(SDelivery& delivery);

private:
    const std::size_t m_capacity;
    std::mutex m_mutex;
    SDelivery m_waiting;
};

} // namespace vexmor::Apps::Cimview
