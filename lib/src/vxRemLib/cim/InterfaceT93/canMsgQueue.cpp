#include "InterfaceT93/canMsgQueue.h"

#include <utility>

namespace vexmor::Cim
{

void CCanMsgQueue::create()
{
    auto ring = std::make_unique<SRing>();
    m_writeSlot = &ring->slots.front();
    m_unpublished = 0;
    m_room = CAPACITY;
    const std::lock_guard lock(m_lock);
    m_ring.swap(ring);
}

void CCanMsgQueue::destroy()
{
    std::unique_ptr<SRing> ring;
    m_writeSlot = nullptr;
    const std::lock_guard lock(m_lock);
    m_ring.swap(ring);
}

void CCanMsgQueue::publish()
{
    const std::lock_guard lock(m_lock);
    if (m_ring) {
        m_ring->count += std::exchange(m_unpublished, 0);
        m_room = CAPACITY - m_ring->count;
    }
}

CCanMsgQueue::ETake CCanMsgQueue::take(CCanMessage& message)
{
    const std::lock_guard lock(m_lock);
    if (!m_ring) {
        return ETake::eNoQueue;
    }
    if (m_ring->count == 0) {
        return ETake::eEmpty;
    }
    message = *m_ring->readSlot;
    m_ring->readSlot = m_ring->next(m_ring->readSlot);
    --m_ring->count;
    return ETake::eTaken;
}

} // namespace vexmor::Cim
