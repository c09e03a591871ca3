#pragma once

#include "cim/canMessage.h"

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>

namespace vexmor::Cim
{

/// The received messages of an interface that were not read yet: a ring that exists from open to close.
///
/// A full queue refuses new messages: what was stored stays, in order, until it is read. Messages are written and
/// stored without the lock, and handed to the readers together by `publish`, which takes it once. So the lock is held
/// for a few instructions only, never while a function of the host runs, and nothing is allocated meanwhile.
///
/// Any thread may call `take`. All else belongs to the driver's thread.
class CCanMsgQueue
{
public:
    static constexpr std::uint32_t CAPACITY = 10000;

    enum class EStore {
        eStored,
        eBecameFull, ///< stored, and it took the last free slot
        eRefused     ///< the queue was full
    };
    enum class ETake { eTaken, eEmpty, eNoQueue };

    /// Makes an empty queue in the place of any that is there.
    void create();
    /// Frees the queue and the messages in it.
    void destroy();

    /// The place of the next message, which still holds an older one; null while there is no queue.
    CCanMessage* slot() const { return m_writeSlot; }
    /// Stores the message that was written to `slot`. Readers get it after the next `publish`.
    EStore store();
    /// Lets readers have all messages that were stored.
    void publish();

    /// Takes the oldest message; `message` is untouched unless one was taken.
    ETake take(CCanMessage& message);

private:
    /// One slot more than there may be messages, so that the writer always has one of its own.
    static constexpr std::uint32_t SLOT_COUNT = CAPACITY + 1;

    struct SRing {
        /// The slot behind another one, which has the first behind the last.
        CCanMessage* next(CCanMessage* slot) { return slot == &slots.back() ? &slots.front() : slot + 1; }

        std::array<CCanMessage, SLOT_COUNT> slots;
        CCanMessage* readSlot = &slots.front(); ///< that the next message is taken from
        std::uint32_t count = 0;                ///< messages published and not yet taken
    };

    std::mutex m_lock; ///< guards the pointer, and of the ring all but the slots that were not published
    std::unique_ptr<SRing> m_ring;

    // Of the driver's thread:
    CCanMessage* m_writeSlot = nullptr; ///< that the next message is written to; null while there is no queue
    std::uint32_t m_unpublished = 0;    ///< messages stored since the last `publish`
    std::uint32_t m_room = 0; ///< messages that fit in any case: readers may have made room since the last `publish`
};

inline CCanMsgQueue::EStore CCanMsgQueue::store()
{
    if (m_room == 0) {
        publish();
        if (m_room == 0) {
            return EStore::eRefused;
        }
    }
    m_writeSlot = m_ring->next(m_writeSlot);
    ++m_unpublished;
    if (--m_room > 0) {
        return EStore::eStored;
    }
    publish();
    return m_room == 0 ? EStore::eBecameFull : EStore::eStored;
}

} // namespace vexmor::Cim
