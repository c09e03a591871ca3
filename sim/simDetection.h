#pragma once

#include "InterfaceT93/detectionDatagrams.h"

#include <QObject>
#include <QString>
#include <QUdpSocket>

#include <cstdint>
#include <memory>
#include <vector>

namespace vexmor::Sim
{

class CSimGateway;

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
/// It listens on all addresses of this computer, for which reason it is there only when somebody asks for it.
class CSimDetection : public QObject
{
    Q_OBJECT

public:
    explicit CSimDetection(QObject* parent = nullptr);

    /// False, with a text for the user, when the port cannot be had. Several programs may share it: a broadcast reaches
    /// them all, a request for one address only the last.
    bool listen(std::uint16_t port, QString& error);
    /// A gateway that serves already; it must outlive this object. It answers from its own address, with the host name,
    /// MAC address and endpoints of its identity.
    void addGateway(const CSimGateway& gateway);
    void setFaults(const SSimDetectionFaults& faults) { m_faults = faults; }

Q_SIGNALS:
    /// An ident request came.
    void asked(const QHostAddress& sender, std::uint16_t port);

private:
    struct SAnswerer {
        const CSimGateway* gateway;
        std::unique_ptr<QUdpSocket> socket; ///< bound to the gateway's address
    };

    void onDatagrams();
    void answer(const SAnswerer& answerer, const QHostAddress& host, std::uint16_t port);
    QByteArray replyOf(const CSimGateway& gateway) const;

    QUdpSocket m_socket;
    std::vector<SAnswerer> m_answerers;
    SSimDetectionFaults m_faults;
};

} // namespace vexmor::Sim
