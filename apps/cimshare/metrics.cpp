#include "apps/cimshare/metrics.h"

#include "apps/host/clock.h"

#include <QFile>

#include <chrono>
#include <cstdio>
#include <functional>

namespace vexmor::Apps::Cimshare
{
namespace
{
/// Adds a value of the metric whose name ends with `last`.
using AddValue = std::function<void(const char* last, const char* help, double value, const QByteArray& labels)>;

void addBus(const AddValue& add, const CSharedBus& bus, const CProtocols& protocols)
{
    QByteArray busName = bus.plainName().toUtf8();
    busName.replace('\\', "\\\\").replace('"', "\\\"");
    const auto addOf = [&](const char* last, const char* help, double value, const QByteArray& labels = {}) {
        add(last, help, value, "{interface=\"" + busName + '"' + labels + '}');
    };
    const SInterfaceStatus& status = bus.status();
    const auto now = SInterfaceStatus::Clock::now();
    addOf("interface_connected", "1 while the gateway answers.", status.isConnected() ? 1 : 0);
    if (const auto last = status.isConnected() ? now : status.lastFrame) {
        addOf("interface_silent_seconds", "Time since the last valid frame of the gateway, 0 while it answers.",
              std::chrono::duration<double>(now - *last).count());
    }
    if (status.busload) {
        addOf("interface_load_ratio", "Load of the CAN bus.", *status.busload / 100.0);
    }
    for (const auto& [error, count] : bus.errors()) {
        const QByteArray label = ",error=\"" + QByteArray::number(error) + '"';
        addOf("interface_errors_total", "Errors of the interface, by their number.", count, label);
    }
    for (const char* const direction : {"received", "sent"}) {
        const CSharedBus::SCount& count = *direction == 's' ? bus.sent() : bus.received();
        const QByteArray label = QByteArray(",direction=\"") + direction + '"';
        addOf("messages_total", "Messages that passed the gateway.", count.messages, label);
        addOf("bytes_total", "Data bytes of these messages.", count.bytes, label);
    }
    addOf("refused_messages_total", "Messages of clients that were not sent.", bus.refused());
    std::map<QString, int> clients;
    for (const auto& protocol : protocols) {
        clients[protocol->name()] += protocol->clientCount(bus);
    }
    const char* const lostHelp =
        "Messages lost on the way to clients or the broker, or (service) in the service itself.";
    std::map<QString, quint64> lost = bus.lostByProtocol();
    quint64 ofService = bus.lost();
    for (const auto& [protocol, count] : clients) {
        const QByteArray label = ",protocol=\"" + protocol.toUtf8() + '"';
        addOf("clients", "Clients that are connected to the bus.", count, label);
        addOf("lost_messages_total", lostHelp, lost[protocol], label);
        ofService -= lost[protocol];
    }
    addOf("lost_messages_total", lostHelp, ofService, R"(,protocol="service")");
}
} // namespace

QByteArray metricsText(const CSharedBuses& buses, const CProtocols& protocols, const CEventLog& log)
{
    static const double START = microsecondsNow() / 1e6;
    std::map<QByteArray, QByteArray> families; // the lines of each metric, by its name
    const auto add = [&](const char* last, const char* help, double value, const QByteArray& labels = {}) {
        const QByteArray name = QByteArray("cimshare_") + last;
        QByteArray& lines = families[name];
        if (lines.isEmpty()) {
            const char* const type = name.endsWith("_total") ? " counter\n" : " gauge\n";
            lines = "# HELP " + name + ' ' + help + "\n# TYPE " + name + type;
        }
        lines += name + labels + ' ' + QByteArray::number(value, 'g', 15) + '\n';
    };
    for (const auto& bus : buses) {
        addBus(add, *bus, protocols);
    }
    for (const auto& protocol : protocols) {
        if (const std::optional<bool> isConnected = protocol->isBrokerConnected()) {
            add("broker_connected", "1 while the broker is connected.", *isConnected ? 1 : 0);
        }
    }
    add("start_time_seconds", "Start of the service, since 1970.", START);
    add("log_lines_left_out_total", "Lines of the log that were left out.", log.leftOut());
    QByteArray result;
    for (const auto& [name, lines] : families) {
        result += lines;
    }
    return result;
}

Failure replaceFile(const QString& path, const QByteArray& content)
{
    const QFile::Permissions readable(0x6044); // for all users: node_exporter runs as another user
    QFile file(path + QStringLiteral(".new"));
    const bool isWritten = file.open(QIODevice::WriteOnly) && file.setPermissions(readable) &&
                           file.write(content) == content.size() && file.flush();
    if (!isWritten) {
        return SProblem{QStringLiteral("%1: %2").arg(path, file.errorString())};
    }
    // QSaveFile would wait for the disk, and with it all clients.
    const int code = std::rename(QFile::encodeName(file.fileName()), QFile::encodeName(path));
    return code == 0 ? Failure() : SProblem{QStringLiteral("%1: %2").arg(path, qt_error_string())};
}

} // namespace vexmor::Apps::Cimshare
