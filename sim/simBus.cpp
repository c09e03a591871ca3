#include "sim/simBus.h"

#include "InterfaceT93/busloadMeter.h"

namespace vexmor::Sim
{

CSimBus::CSimBus(QObject* parent) : QObject(parent) {}

bool CSimBus::send(const Cim::CCanMessage& message, const QObject* sender)
{
    ++m_messageCount;
    m_bitCount += Cim::canMessageBits(message.length());
    Q_EMIT messageSent(message, sender);
    return true;
}

} // namespace vexmor::Sim
