#pragma once

#include "InterfaceT93/detectionDatagrams.h"
#include "canlog/problem.h"

#include <QObject>
#include <QUdpSocket>

#include <cstdint>
#include <memory>
#include <vector>

namespace vexmor::Sim
{

class CSimGateway;

/// How a host can reach a gateway, as the gateway reports it to hosts that scan the network. Values that no gateway has
/// are reported just as well.
struct SSimEndpoint {
    std::uint8_t service = Cim::DDT_SERVICE_SERVER;
    std::uint8_t protocol = Cim::DDT_PROTOCOL_TCP;
    std::uint16_t port = 0; ///< 0: the port that the gateway serves
};

/// What a gateway reports to hosts that scan the network, beside its MAC address and its address.
struct SSimAnnouncement {
    QByteArray hostName = "t93sim";
    std::vector<SSimEndpoint> endpoints{{}, {Cim::DDT_SERVICE_SERVER, Cim::DDT_PROTOCOL_UDP, 0}};
};

/// How the replies to ident requests misbehave, from now on. Each is independent of the others; the default is to
/// behave.
struct SSimDetectionFaults {
    int cutAt = 0;               ///< replies end behind so many bytes; 0: whole
    int entryCount = -1;         ///< the header announces so many entries; -1: as many as there are
    bool nameWithoutEnd = false; ///< the host name fills its field, without the zero byte
    bool nameNoUtf8 = false;     ///< the host name begins with bytes that are no UTF-8
    int repeat = 1;              ///< each reply is sent so often
    int delayMs = 0;             ///< before each reply
};

/// Answers the ident requests of hosts that scan the network, as each of its gateways would: to a broadcast all of
/// them, to a request for one address those that serve there. A gateway that leaves requests unanswered leaves these,
/// too. Lives in the thread of its gateways.
///
/// It listens on all addresses of this computer; a program creates it only on request.
class CSimDetection : public QObject
{
    Q_OBJECT

public:
    explicit CSimDetection(QObject* parent = nullptr);

    /// Starts to answer. Several programs may share the port: a broadcast reaches them all, a request for one address
    /// only the last.
    Failure listen(std::uint16_t port);
    /// Adds a gateway that serves already; it must outlive this object. The reply comes from the gateway's own address.
    void addGateway(const CSimGateway& gateway, const SSimAnnouncement& announcement = {});
    void setFaults(const SSimDetectionFaults& faults) { m_faults = faults; }

Q_SIGNALS:
    /// An ident request came.
    void asked(const QHostAddress& sender, std::uint16_t port);

private:
    struct SAnswerer {
        const CSimGateway* gateway;
        SSimAnnouncement announcement;
        std::unique_ptr<QUdpSocket> socket; ///< bound to the gateway's address
    };

    void onDatagrams();
    void answer(const SAnswerer& answerer, const QHostAddress& host, std::uint16_t port);
    QByteArray replyOf(const SAnswerer& answerer) const;

    QUdpSocket m_socket;
    std::vector<SAnswerer> m_answerers;
    SSimDetectionFaults m_faults;
};

} // namespace vexmor::Sim
