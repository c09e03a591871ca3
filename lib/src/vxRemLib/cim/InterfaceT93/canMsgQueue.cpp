#include "InterfaceT93/canMsgQueue.h"

namespace vexmor::Cim
{

bool CCanMsgRing::store(const CCanMessage& message)
{
    if (m_count == CAPACITY) {
        return false;
    }
    m_slots[m_writeIndex] = message;
    m_writeIndex = next(m_writeIndex);
    ++m_count;
    return true;
}

bool CCanMsgRing::take(CCanMessage& message)
{
    if (m_count == 0) {
        return false;
    }
    message = m_slots[m_readIndex];
    m_readIndex = next(m_readIndex);
    --m_count;
    return true;
}

void CCanMsgQueue::create()
{
    auto ring = std::make_unique<CCanMsgRing>();
    const std::lock_guard lock(m_lock);
    m_ring.swap(ring);
}

void CCanMsgQueue::destroy()
{
    std::unique_ptr<CCanMsgRing> ring;
    const std::lock_guard lock(m_lock);
    m_ring.swap(ring);
}

CCanMsgQueue::EStore CCanMsgQueue::store(const CCanMessage& message)
{
    const std::lock_guard lock(m_lock);
    if (!m_ring) {
        return EStore::eNoQueue;
    }
    if (!m_ring->store(message)) {
        return EStore::eRefused;
    }
    return m_ring->count() == CCanMsgRing::CAPACITY ? EStore::eBecameFull : EStore::eStored;
}

CCanMsgQueue::ETake CCanMsgQueue::take(CCanMessage& message)
{
    const std::lock_guard lock(m_lock);
    if (!m_ring) {
        return ETake::eNoQueue;
    }
    return m_ring->take(message) ? ETake::eTaken : ETake::eEmpty;
}

} // namespace vexmor::Cim
