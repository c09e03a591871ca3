#include "apps/host/mailbox.h"

#include <algorithm>
#include <utility>

namespace vexmor::Apps
{

void CMailbox::post(const std::vector<SBusRecord>& records)
{
    bool wasEmpty = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        wasEmpty = m_content.isEmpty();
        for (const SBusRecord& record : records) {
            if (m_content.records.size() < (record.sent ? 2 * m_capacity : m_capacity)) {
                m_content.records.push_back(record);
            } else {
                ++m_content.lost;
            }
        }
    }
    if (wasEmpty && !records.empty()) {
        Q_EMIT filled();
    }
}

void CMailbox::postError(const SErrorRecord& error)
{
    bool wasEmpty = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        wasEmpty = m_content.isEmpty();
        const auto isSameKind = [&error](const SErrorRecord& other) {
            return other.source == error.source && other.error == error.error;
        };
        const auto same = std::find_if(m_content.errors.begin(), m_content.errors.end(), isSameKind);
        if (same == m_content.errors.end()) {
            m_content.errors.push_back(error);
        } else {
            same->count += error.count;
        }
    }
    if (wasEmpty) {
        Q_EMIT filled();
    }
}

void CMailbox::take(SDelivery& delivery)
{
    delivery.records.clear();
    delivery.errors.clear();
    delivery.lost = 0;
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::swap(delivery, m_content);
}

} // namespace vexmor::Apps
