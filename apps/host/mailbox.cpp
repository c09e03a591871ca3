#include "apps/host/mailbox.h"

#include <algorithm>
#include <utility>

namespace vexmor::Apps
{

template <typename Change>
void CMailbox::change(const Change& change)
{
    bool isFilled = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const bool wasEmpty = m_content.isEmpty();
        change();
        isFilled = wasEmpty && !m_content.isEmpty();
    }
    if (isFilled) {
        Q_EMIT filled();
    }
}

void CMailbox::post(const std::vector<SBusRecord>& records)
{
    change([&] {
        for (const SBusRecord& record : records) {
            if (m_content.records.size() < (record.sent ? 2 * m_capacity : m_capacity)) {
                m_content.records.push_back(record);
            } else {
                ++m_content.lost;
            }
        }
    });
}

void CMailbox::postError(const SErrorRecord& error)
{
    change([&] {
        const auto isSameKind = [&error](const SErrorRecord& other) {
            return other.source == error.source && other.error == error.error;
        };
        const auto same = std::find_if(m_content.errors.begin(), m_content.errors.end(), isSameKind);
        if (same == m_content.errors.end()) {
            m_content.errors.push_back(error);
        } else {
            same->count += error.count;
        }
    });
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
