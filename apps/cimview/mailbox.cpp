#include "apps/cimview/mailbox.h"

#include <algorithm>
#include <utility>

namespace vexmor::Apps::Cimview
{

void CMailbox::post(const STraceRecord& record)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_waiting.records.size() < m_capacity) {
        m_waiting.records.push_back(record);
    } else {
        ++m_waiting.lost;
    }
}

void CMailbox::postError(const SErrorRecord& error)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto isSameKind = [&error](const SErrorRecord& other) {
        return other.source == error.source && other.error == error.error;
    };
    const auto same = std::find_if(m_waiting.errors.begin(), m_waiting.errors.end(), isSameKind);
    if (same == m_waiting.errors.end()) {
        m_waiting.errors.push_back(error);
    } else {
        same->count += error.count;
    }
}

void CMailbox::take(SDelivery& delivery)
{
    delivery.records.clear();
    delivery.errors.clear();
    delivery.lost = 0;
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::swap(delivery, m_waiting);
}

} // namespace vexmor::Apps::Cimview
