#include "apps/demo/stage.h"

#include "canlog/problem.h"

#include <QHostAddress>

#include <algorithm>

namespace vexmor::Apps::Demo
{
namespace
{
constexpr std::size_t ID_COUNT = 0x800;
}

CStage::CStage() : m_gateway(m_bus), m_generator(m_bus), m_idsOnBus(ID_COUNT)
{
    if (const Failure failure = m_gateway.listen(QHostAddress(QHostAddress::LocalHost), 0)) {
        throw *failure;
    }
    connect(&m_bus, &Sim::CSimBus::messageSent, this, &CStage::onBusMessage);
}

void CStage::host(std::unique_ptr<Cim::CCanInterface> canInterface)
{
    m_hosted = std::make_unique<CHostedInterface>(std::move(canInterface));
    connect(m_hosted.get(), &CHostedInterface::received, this,
            [this](const auto& message) { m_received.push_back(message); });
    connect(m_hosted.get(), &CHostedInterface::errorRaised, this, [this](int error) { m_lastError = error; });
}

void CStage::forget()
{
    m_fromDevices.clear();
    m_received.clear();
}

void CStage::onBusMessage(const Cim::CCanMessage& message, const QObject* sender)
{
    const std::uint16_t id = message.id().value();
    m_idsOnBus[id % ID_COUNT] = true;
    if (sender == nullptr) {
        m_fromDevices.push_back(message);
    }
    if (id == REQUEST_ID) {
        std::vector<unsigned char> data(message.data(), message.data() + message.length());
        std::reverse(data.begin(), data.end());
        m_bus.send(
            Cim::CCanMessage(Cim::CCanId::fromValue(ANSWER_ID), static_cast<unsigned char>(data.size()), data.data()));
    }
}

} // namespace vexmor::Apps::Demo
