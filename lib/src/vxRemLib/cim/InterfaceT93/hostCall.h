#pragma once

#include "InterfaceT93/interfaceT93.h"

#include <QPointer>

namespace vexmor::Cim
{

/// Made on the stack by an operation of the driver before it calls the host, who may close, reopen or delete the
/// interface in that call. Tells afterwards whether the operation may go on, and keeps the link alive that long.
class CInterfaceT93::CHostCall
{
public:
    explicit CHostCall(CInterfaceT93& owner) : m_owner(&owner), m_link(owner.m_link), m_openings(owner.m_openings) {}

    /// The link that was used when the call was made.
    const std::shared_ptr<CGatewayLink>& link() const { return m_link; }
    /// False once the host has deleted the interface: no member of it may be touched any more.
    bool isOwnerAlive() const { return !m_owner.isNull(); }
    /// False once the host has deleted, closed or reopened the interface. A link that was lost meanwhile is no reason.
    bool isSameOpening() const { return isOwnerAlive() && m_owner->m_link && m_owner->m_openings == m_openings; }

private:
    const QPointer<CInterfaceT93> m_owner;
    const std::shared_ptr<CGatewayLink> m_link;
    const std::uint32_t m_openings;
};

} // namespace vexmor::Cim
