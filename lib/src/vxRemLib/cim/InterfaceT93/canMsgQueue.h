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
/// A full queue refuses new messages and keeps the stored ones in order. The driver (CInterfaceT93) writes messages
/// without the lock; `publish` takes the lock once to make these messages visible to readers. The lock is held for a
/// few instructions only, without allocation, and never during a call to the host application.
///
/// Any thread may call `take`. Only the driver's thread calls the other functions.
class CCanMsgQueue
{
public:
    static constexpr std::uint32_t CAPACITY = 10000;

    enum class EStore {
        eStored,
        eBecameFull, ///< The message was stored in the last free slot.
        eRefused     ///< The queue was full; the message was not stored.
    };
    enum class ETake { eTaken, eEmpty, eNoQueue };

    /// Makes an empty queue; an existing one is replaced.
    void create();
    /// Frees the queue and the messages in it.
    void destroy();

    /// Returns the slot for the next message, which still holds an older message; null while there is no queue.
    CCanMessage* slot() const { return m_writeSlot; }
    /// Stores the message that was written to `slot`. Readers see it after the next `publish`.
    EStore store();
    /// Makes all stored messages visible to readers.
    void publish();

    /// Takes the oldest message; when there is none, `message` is unchanged.
    ETake take(CCanMessage& message);

private:
    /// One slot more than the capacity, so that the writer always has a slot of its own.
    static constexpr std::uint32_t SLOT_COUNT = CAPACITY + 1;

    struct SRing {
        /// Returns the slot after `slot`; the first slot follows the last.
        CCanMessage* next(CCanMessage* slot) { return slot == &slots.back() ? &slots.front() : slot + 1; }

        std::array<CCanMessage, SLOT_COUNT> slots;
        CCanMessage* readSlot = &slots.front(); ///< Slot of the oldest message.
        std::uint32_t count = 0;                ///< Number of messages that were published and not yet taken.
    };

    std::mutex m_lock; ///< Guards m_ring and the ring, except for slots that were not published.
    std::unique_ptr<SRing> m_ring;

    // The following members are used by the driver's thread only.
    CCanMessage* m_writeSlot = nullptr; ///< Slot of the next message; null while there is no queue.
    std::uint32_t m_unpublished = 0;    ///< Number of messages stored since the last `publish`.
    std::uint32_t m_room = 0;           ///< Free slots at the last `publish`; readers may have freed more since.
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
