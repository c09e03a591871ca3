#pragma once

// The program cimshare at a simulated gateway, and who speaks with it.

#include "canlog/candumpLog.h"
#include "t93Fixture.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>

namespace vexmor::Test
{

/// As a log has it: identifier, and data in hexadecimal.
inline QString textOf(const CCanMessage& message)
{
    return QString::fromLatin1(CanLog::formatFrame(message));
}

/// What the simulated gateway sends as number `i` of a flood.
inline QString floodText(int i)
{
    return "%1#%2"_s.arg(i % 0x800, 3, 16, QLatin1Char('0')).arg(i, 16, 16, QLatin1Char('0')).toUpper();
}

/// Ends with its scope.
struct SProgram : QProcess {
    ~SProgram() override { stop(); }
    void stop()
    {
        kill();
        waitForFinished();
    }
};

/// The program, which shares a gateway of the test as "127.0.0.1:PORT"; it has ended well when this ends.
struct SShare : SGateway {
    /// Gateway and bus of the test, and what the program is told besides; the gateway may be away at first.
    explicit SShare(const QString& options, bool isAway = false)
    {
        isAway ? leave() : void();
        QObject::connect(&gateway, &CSimGateway::messageReceived,
                         [this](const CCanMessage& one) { sent.append(textOf(one)); });
        QObject::connect(&program, &QProcess::readyReadStandardOutput, [this] {
            while (program.canReadLine()) {
                events.append(QJsonDocument::fromJson(program.readLine()).object());
            }
        });
        program.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        name = "127.0.0.1:%1"_s.arg(gateway.port());
        arguments = list(name + " --json "_s + options);
        start();
        isUp = isAway || happened("identified"_s);
    }
    ~SShare() { end(); }
    void leave()
    {
        SSimFaults away;
        away.refuse = true;
        gateway.setFaults(away);
        gateway.dropLinks();
    }
    /// Puts frames on the bus.
    void put(const char* frames)
    {
        for (const QByteArray& frame : QByteArray(frames).split(' ')) {
            auto message = CanLog::parseFrame(frame);
            message ? bus.send(*message) : qFatal("no frame");
        }
    }
    void start()
    {
        events.clear();
        program.start(QStringLiteral(CIM_CIMSHARE), arguments);
    }
    /// Ends it as a service manager does; gives its exit code.
    int end()
    {
        program.terminate();
        (void)QTest::qWaitFor([this] { return program.state() == QProcess::NotRunning; });
        return program.exitStatus() == QProcess::NormalExit ? program.exitCode() : -1;
    }
    int count(const QString& event) const
    {
        return static_cast<int>(std::count_if(events.begin(), events.end(), [&](const QJsonObject& one) {
            return one.value("event"_s).toString() == event;
        }));
    }
    /// What was said of it, the last time.
    QString said(const QString& event) const
    {
        QString text;
        for (const QJsonObject& one : events) {
            text = one.value("event"_s).toString() == event ? one.value("text"_s).toString() : text;
        }
        return text;
    }
    bool happened(const QString& event, int times = 1, int timeoutMs = 10000)
    {
        return QTest::qWaitFor([&] { return count(event) >= times; }, timeoutMs);
    }
    /// Where it listens.
    quint16 port(const QString& protocol)
    {
        int result = 0;
        (void)QTest::qWaitFor([&] {
            for (const QJsonObject& one : events) {
                const bool isMeant = one.value("subject"_s).toString().startsWith(protocol);
                result = isMeant && one.contains("port"_s) ? one.value("port"_s).toInt() : result;
            }
            return result != 0;
        });
        return static_cast<quint16>(result);
    }

    QString name;
    QStringList arguments;
    QProcess program;
    QList<QJsonObject> events;
    QStringList sent; ///< to the gateway
    bool isUp = false;
};

/// A client of the socketcand protocol, by hand.
struct SClient : QTcpSocket {
    explicit SClient(SShare& share, const QByteArray& mode = "rawmode")
    {
        connect(this, &QTcpSocket::readyRead, [this] { heard += readAll(); });
        connectToHost(QHostAddress(QHostAddress::LocalHost), share.port("socketcand"_s));
        if (!mode.isEmpty()) {
            isOpen = hears("< hi >") && asks("< open " + share.name.toLatin1() + " >", "< ok >") &&
                     (mode == "bcmmode" || asks("< " + mode + " >", "< ok >"));
        }
    }
    /// Says something and waits for what it is answered; what was heard before is forgotten.
    bool asks(const QByteArray& request, const QByteArray& answer)
    {
        heard.clear();
        write(request);
        return hears(answer);
    }
    bool hears(const QByteArray& text)
    {
        (void)QTest::qWaitFor([&] { return heard.contains(text) || state() == UnconnectedState; });
        return heard.contains(text);
    }
    /// Identifier and data of each frame, like 123#1122.
    QStringList frames() const
    {
        static const QRegularExpression FRAME("< frame (\\w{3}) \\d+\\.\\d{6} (\\w*) >"_s);
        QStringList result;
        for (auto match = FRAME.globalMatch(QString::fromLatin1(heard)); match.hasNext();) {
            const auto one = match.next();
            result.append(one.captured(1) + QLatin1Char('#') + one.captured(2));
        }
        return result;
    }

    /// Reads nothing from now on.
    void stopReading()
    {
        disconnect();
        setReadBufferSize(1);
    }
    void readAgain()
    {
        connect(this, &QTcpSocket::readyRead, [this] { heard += readAll(); });
        setReadBufferSize(0);
        heard += readAll();
    }

    QString seen() const { return frames().join(QLatin1Char(' ')); }

    QByteArray heard;
    bool isOpen = false;
};

} // namespace vexmor::Test
