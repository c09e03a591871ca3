#pragma once

#include "InterfaceT93/interfaceT93.h"

#include <QPointer>

namespace vexmor::Cim
{

/// Guards a call to the host application, which may close, reopen or delete the interface. An operation of the driver
/// (CInterfaceT93) makes a CHostCall on the stack before such a call. After the call, this object shows whether the
/// operation may go on. It also keeps the link alive.
class CInterfaceT93::CHostCall
{
public:
    explicit CHostCall(CInterfaceT93& owner) : m_owner(&owner), m_link(owner.m_link), m_openings(owner.m_openings) {}

    /// Returns the link that was used when this object was made.
    const std::shared_ptr<CGatewayLink>& link() const { return m_link; }
    /// Returns false once the interface was deleted: none of its members may then be used.
    bool isOwnerAlive() const { return !m_owner.isNull(); }
    /// Returns false once the interface was deleted, closed or reopened. A lost link does not count.
    bool isSameOpening() const { return isOwnerAlive() && m_owner->m_link && m_owner->m_openings == m_openings; }

private:
    const QPointer<CInterfaceT93> m_owner;
    const std::shared_ptr<CGatewayLink> m_link;
    const std::uint32_t m_openings;
};

} // namespace vexmor::Cim
