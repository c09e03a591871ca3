#pragma once

// The program cimshare with a simulated gateway, and its clients.

#include "canlog/candumpLog.h"
#include "t93Fixture.h"

namespace vexmor::Test
{

/// Returns a message in the form of a log, like 123#1122: identifier and data in hexadecimal.
inline QString textOf(const CCanMessage& message)
{
    return QString::fromLatin1(CanLog::formatFrame(message));
}

/// Returns message number `i` of the simulated gateway's flood, in the form of a log.
inline QString floodText(int i)
{
    return "%1#%2"_s.arg(i % 0x800, 3, 16, QLatin1Char('0')).arg(i, 16, 16, QLatin1Char('0')).toUpper();
}

/// Fails the test if `holds` is false, but continues.
inline void require(bool holds, const QString& what)
{
    QTest::qVerify(holds, qPrintable(what), "", __FILE__, __LINE__);
}

/// A process that is ended with its scope.
struct SProgram : QProcess {
    ~SProgram() override { stop(); }
    void stop()
    {
        kill();
        waitForFinished();
    }
};

/// The program cimshare, which shares a gateway of the test as "127.0.0.1:PORT". The test fails when the program does
/// not start, or does not end with exit code 0.
struct SShare : SGateway {
    /// `options` precede the gateway on the command line. With `isAway`, the gateway refuses connections at first.
    explicit SShare(const QString& options, bool isAway = false)
    {
        isAway ? misbehave(&SSimFaults::refuse) : void();
        QObject::connect(&gateway, &CSimGateway::messageReceived, [this](const auto& one) { sent += textOf(one); });
        QObject::connect(&program, &QProcess::readyReadStandardOutput, [this] {
            while (program.canReadLine()) {
                const QByteArray line = program.readLine();
                events.append(QJsonDocument::fromJson(line).object());
                require(!events.last().isEmpty(), QString::fromUtf8(line));
            }
        });
        program.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        name = "127.0.0.1:%1"_s.arg(gateway.port());
        arguments = list(options + " --json "_s + name);
        start();
        const auto isIdentified = [this] {
            const QList<QJsonObject> all = named("identified"_s); // other buses of the program are, too
            return std::any_of(all.begin(), all.end(), [this](const auto& one) { return one["subject"_s] == name; });
        };
        require(isAway || QTest::qWaitFor(isIdentified, 10000), "the gateway is identified"_s);
    }
    ~SShare() { end(); }
    void misbehave(bool SSimFaults::*fault) { gateway.setFaults(faulty(fault)); }
    /// Sends frames on the bus of the gateway; blanks separate them.
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
    /// Ends the program as a service manager does.
    void end()
    {
        program.terminate();
        (void)QTest::qWaitFor([this] { return program.state() == QProcess::NotRunning; });
        require(program.exitStatus() == QProcess::NormalExit && program.exitCode() == 0, "cimshare ends well"_s);
    }
    QList<QJsonObject> named(const QString& event) const
    {
        QList<QJsonObject> result;
        std::copy_if(events.begin(), events.end(), std::back_inserter(result),
                     [&](const QJsonObject& one) { return one.value("event"_s) == event; });
        return result;
    }
    int count(const QString& event) const { return static_cast<int>(named(event).size()); }
    /// Returns the text of the newest event with that name, and waits for the first one.
    QString text(const QString& event)
    {
        return happened(event) ? named(event).last().value("text"_s).toString() : QString();
    }
    bool happened(const QString& event, int times = 1, int timeoutMs = 10000)
    {
        return QTest::qWaitFor([&] { return count(event) >= times; }, timeoutMs);
    }
    /// Returns the port on which the program listens for a protocol.
    quint16 port(const QString& protocol)
    {
        int result = 0;
        (void)QTest::qWaitFor([&] {
            for (const QJsonObject& one : named("listening"_s)) {
                result = one.value("subject"_s).toString().startsWith(protocol) ? one.value("port"_s).toInt() : result;
            }
            return result != 0;
        });
        return static_cast<quint16>(result);
    }

    QString name;
    QStringList arguments;
    QProcess program;
    QList<QJsonObject> events;
    QStringList sent; ///< Messages that the gateway received, in the form of a log.
};

/// A TCP client without a protocol, with a record of all bytes that it received.
struct SPeer : QTcpSocket {
    explicit SPeer(quint16 port, const char* from = "127.0.0.1")
    {
        readAgain();
        bind(QHostAddress(QString::fromLatin1(from)));
        connectToHost(QHostAddress(QHostAddress::LocalHost), port);
    }
    void stopReading()
    {
        disconnect();
        setReadBufferSize(1);
    }
    void readAgain()
    {
        connect(this, &QTcpSocket::readyRead, [this] { heard += readAll(); });
        setReadBufferSize(0);
        heard += bytesAvailable() > 0 ? readAll() : QByteArray();
    }
    QByteArray heard;
};

/// A T93 client that sends and receives raw bytes.
struct SRawHost : SPeer {
    explicit SRawHost(SShare& share, const char* from = "127.0.0.1") : SPeer(share.port("t93 "_s + share.name), from) {}
};

/// A client of the socketcand protocol.
struct SClient : SPeer {
    /// Opens the bus and enters `mode`; without a mode, only connects.
    explicit SClient(SShare& share, const QByteArray& mode = "rawmode", const char* from = "127.0.0.1")
        : SPeer(share.port("socketcand"_s), from)
    {
        if (!mode.isEmpty()) {
            require(hears("< hi >") && asks("< open " + share.name.toLatin1() + " >", "< ok >") &&
                        (mode == "bcmmode" || asks("< " + mode + " >", "< ok >")),
                    "a client opens the bus"_s);
        }
    }
    /// Writes a request and waits for its answer. Clears `heard` first.
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
    /// The same for an error element with class and time, as python-can 4.6 and later expect; `error` is "CLASS TEXT".
    bool getsError(const QByteArray& request, const QString& error) { return asks(request, "") && hearsError(error); }
    bool hearsError(const QString& error)
    {
        const QRegularExpression element("\n< error "_s + error.left(4) + "\\d{10}\\.\\d{6} "_s +
                                         QRegularExpression::escape(error.mid(4)) + " >"_s);
        return QTest::qWaitFor([&] { return element.match(QString::fromLatin1(heard)).hasMatch(); });
    }
    /// Returns the received frames, each like 123#1122.
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
    QString seen() const { return frames().join(QLatin1Char(' ')); }
};

} // namespace vexmor::Test
