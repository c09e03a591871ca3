#include "InterfaceT93/canMsgQueue.h"

#include <QThread>

#include <utility>

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

namespace vexmor::Cim
{
namespace
{
/// Holds the lock for a scope. The thread sanitizer cannot see into Qt's mutex, so in such a build it is told.
class CScopedLock
{
public:
    explicit CScopedLock(CRecursiveMutex& mutex) : m_mutex(mutex)
    {
#if defined(__SANITIZE_THREAD__)
        __tsan_mutex_pre_lock(&m_mutex, 0);
        m_mutex.lock();
        __tsan_mutex_post_lock(&m_mutex, 0, 0);
#else
        m_mutex.lock();
#endif
    }
    ~CScopedLock()
    {
#if defined(__SANITIZE_THREAD__)
        __tsan_mutex_pre_unlock(&m_mutex, 0);
        m_mutex.unlock();
        __tsan_mutex_post_unlock(&m_mutex, 0);
#else
        m_mutex.unlock();
#endif
    }
    CScopedLock(const CScopedLock&) = delete;
    CScopedLock& operator=(const CScopedLock&) = delete;

private:
    CRecursiveMutex& m_mutex;
};
} // namespace

void CRecursiveMutex::lock()
{
    const Qt::HANDLE self = QThread::currentThreadId();
    if (m_owner.load(std::memory_order_relaxed) != self) {
        m_mutex.lock();
        m_owner.store(self, std::memory_order_relaxed);
    }
    ++m_depth;
}

void CRecursiveMutex::unlock()
{
    if (--m_depth == 0) {
        m_owner.store(nullptr, std::memory_order_relaxed);
        m_mutex.unlock();
    }
}

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
    const CScopedLock lock(m_lock);
    m_ring.swap(ring);
}

void CCanMsgQueue::destroy()
{
    std::unique_ptr<CCanMsgRing> ring;
    const CScopedLock lock(m_lock);
    m_ring.swap(ring);
}

CCanMsgQueue::EStore CCanMsgQueue::store(const CCanMessage& message)
{
    const CScopedLock lock(m_lock);
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
    const CScopedLock lock(m_lock);
    if (!m_ring) {
        return ETake::eNoQueue;
    }
    return m_ring->take(message) ? ETake::eTaken : ETake::eEmpty;
}

} // namespace vexmor::Cim
