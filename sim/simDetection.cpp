#include "sim/simDetection.h"

#include "sim/simGateway.h"

#include <QNetworkDatagram>
#include <QTimer>

namespace vexmor::Sim
{
namespace
{
constexpr int OFFSET_ENTRY_COUNT = 3;
} // namespace

CSimDetection::CSimDetection(QObject* parent) : QObject(parent)
{
    connect(&m_socket, &QUdpSocket::readyRead, this, &CSimDetection::onDatagrams);
}

Failure CSimDetection::listen(std::uint16_t port)
{
    m_socket.close();
    if (!m_socket.bind(QHostAddress(QHostAddress::AnyIPv4), port,
                       QAbstractSocket::ShareAddress | QAbstractSocket::ReuseAddressHint)) {
        return SProblem{
            QStringLiteral("cannot listen for ident requests on port %1: %2").arg(port).arg(m_socket.errorString())};
    }
    return {};
}

void CSimDetection::addGateway(const CSimGateway& gateway, const SSimAnnouncement& announcement)
{
    auto socket = std::make_unique<QUdpSocket>();
    socket->bind(gateway.address());
    m_answerers.push_back({&gateway, announcement, std::move(socket)});
}

void CSimDetection::onDatagrams()
{
    while (m_socket.hasPendingDatagrams()) {
        const QNetworkDatagram request = m_socket.receiveDatagram(Cim::DDT_MAX_SIZE);
        if (!Cim::isDdtKind(request.data(), Cim::DDT_IDENT_REQUEST)) {
            continue;
        }
        const QHostAddress host = request.senderAddress();
        const auto port = static_cast<std::uint16_t>(request.senderPort());
        Q_EMIT requestReceived(host, port);
        for (const SAnswerer& answerer : m_answerers) {
            const QHostAddress own = answerer.gateway->address();
            const SSimFaults& faults = answerer.gateway->faults();
            const bool isAddressed = request.destinationAddress() == QHostAddress(QHostAddress::Broadcast) ||
                                     request.destinationAddress() == own || own == QHostAddress(QHostAddress::AnyIPv4);
            if (isAddressed && !faults.mute && !faults.blackHole) {
                answer(answerer, host, port);
            }
        }
    }
}

void CSimDetection::answer(const SAnswerer& answerer, const QHostAddress& host, std::uint16_t port)
{
    const auto send = [socket = answerer.socket.get(), reply = replyOf(answerer), host, port,
                       repeat = m_faults.repeat] {
        for (int i = 0; i < repeat; ++i) {
            socket->writeDatagram(reply, host, port);
        }
    };
    QTimer::singleShot(m_faults.delayMs, answerer.socket.get(), send);
}

QByteArray CSimDetection::replyOf(const SAnswerer& answerer) const
{
    const CSimGateway& gateway = *answerer.gateway;
    Cim::SDdtEntry entry;
    entry.ipAddress = gateway.address().toIPv4Address();
    entry.macAddress = gateway.identity().macAddress;
    entry.typeText = "T93 ";
    entry.hostName = (m_faults.nameNoUtf8 ? QByteArray("\xFF\xC0") : QByteArray()) + answerer.announcement.hostName;
    if (m_faults.nameWithoutEnd) {
        entry.hostName = entry.hostName.leftJustified(Cim::DDT_HOST_NAME_SIZE, 'x');
    }
    std::vector<Cim::SDdtEntry> entries;
    for (const SSimEndpoint& endpoint : answerer.announcement.endpoints) {
        entry.service = endpoint.service;
        entry.protocol = endpoint.protocol;
        entry.port = endpoint.port != 0 ? endpoint.port : gateway.port();
        entries.push_back(entry);
    }
    QByteArray reply = Cim::ddtDatagram(Cim::DDT_IDENT_REPLY, entries);
    if (m_faults.entryCount >= 0) {
        reply[OFFSET_ENTRY_COUNT] = static_cast<char>(m_faults.entryCount);
    }
    return m_faults.cutAt > 0 ? reply.left(m_faults.cutAt) : reply;
}

} // namespace vexmor::Sim
