#include "apps/cimshare/mqttText.h"

#include "canlog/candumpLog.h"

#include <QList>

namespace vexmor::Apps::Cimshare
{
namespace
{
/// A log line, or a frame alone.
Result<Cim::CCanMessage> readMqttLine(const QByteArray& line)
{
    if (!line.startsWith('(')) {
        return CanLog::parseFrame(line);
    }
    auto entry = CanLog::parseLogLine(line);
    if (!entry) {
        return entry.problem();
    }
    if (!*entry) {
        return SProblem{QStringLiteral("no frame that a T93 can send")};
    }
    return (*entry)->message;
}
} // namespace

std::vector<SMqttSend> readMqttLines(const QByteArray& payload)
{
    std::vector<SMqttSend> result;
    for (const QByteArray& whole : payload.split('\n')) {
        SMqttSend send{whole.trimmed(), {}, {}};
        if (send.line.isEmpty() || send.line.startsWith('#')) {
            continue;
        }
        if (auto message = readMqttLine(send.line)) {
            send.message = *message;
        } else {
            send.problem = message.problem().text;
        }
        result.push_back(send);
    }
    return result;
}

} // namespace vexmor::Apps::Cimshare
