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

/// A way to reach a gateway, as the gateway reports it in a scan. Invalid values are allowed, and reported unchanged.
struct SSimEndpoint {
    std::uint8_t service = Cim::DDT_SERVICE_SERVER;
    std::uint8_t protocol = Cim::DDT_PROTOCOL_TCP;
    std::uint16_t port = 0; ///< Port; 0 stands for the port that the gateway serves.
};

/// The host name and endpoints that a gateway reports in a scan, in addition to its MAC address and IP address.
struct SSimAnnouncement {
    QByteArray hostName = "t93sim";
    std::vector<SSimEndpoint> endpoints{{}, {Cim::DDT_SERVICE_SERVER, Cim::DDT_PROTOCOL_UDP, 0}};
};

/// Faults in the replies to ident requests. They are independent of each other; by default there are none.
struct SSimDetectionFaults {
    int cutAt = 0;               ///< Number of bytes after which replies are cut; 0 for whole replies.
    int entryCount = -1;         ///< Number of entries that the header announces; -1 for the true number.
    bool nameWithoutEnd = false; ///< The host name fills its field, without a zero byte.
    bool nameNoUtf8 = false;     ///< The host name begins with bytes that are invalid in UTF-8.
    int repeat = 1;              ///< Number of times that each reply is sent.
    int delayMs = 0;             ///< Delay of each reply, in ms.
};

/// Answers ident requests for simulated gateways: a broadcast is answered by all of them, a request to one address by
/// those that serve this address. A gateway with the fault `mute` or `blackHole` (SSimFaults) does not answer. It lives
/// in the thread of its gateways.
///
/// It listens on all addresses of this computer; programs therefore create it only when the user requests it.
class CSimDetection : public QObject
{
    Q_OBJECT

public:
    explicit CSimDetection(QObject* parent = nullptr);

    /// Starts to answer. Several programs may share the port: all of them receive a broadcast, but only the last one
    /// receives a request to one address.
    Failure listen(std::uint16_t port);
    /// Adds a gateway that is already serving; it must outlive this object. Its replies are sent from its own address.
    void addGateway(const CSimGateway& gateway, const SSimAnnouncement& announcement = {});
    void setFaults(const SSimDetectionFaults& faults) { m_faults = faults; }

Q_SIGNALS:
    /// Emitted for each ident request.
    void requestReceived(const QHostAddress& sender, std::uint16_t port);

private:
    struct SAnswerer {
        const CSimGateway* gateway;
        SSimAnnouncement announcement;
        std::unique_ptr<QUdpSocket> socket; ///< Socket bound to the gateway's address.
    };

    void onDatagrams();
    void answer(const SAnswerer& answerer, const QHostAddress& host, std::uint16_t port);
    QByteArray replyOf(const SAnswerer& answerer) const;

    QUdpSocket m_socket;
    std::vector<SAnswerer> m_answerers;
    SSimDetectionFaults m_faults;
};

} // namespace vexmor::Sim
