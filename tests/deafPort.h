#pragma once

#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>

#include <sys/socket.h>

namespace vexmor::Test
{

/// A port where connections are neither accepted nor refused: its queue is full.
class CDeafPort : public QTcpServer
{
public:
    CDeafPort()
    {
        listen(QHostAddress(QHostAddress::LocalHost));
        ::listen(static_cast<int>(socketDescriptor()), 0);
        pauseAccepting();
        for (QTcpSocket& filler : m_fillers) {
            filler.connectToHost(serverAddress(), serverPort());
            (void)filler.waitForConnected(50);
        }
    }

private:
    QTcpSocket m_fillers[2];
};

} // namespace vexmor::Test
