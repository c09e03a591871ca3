#include "apps/cimshare/mqttText.h"

#include "canlog/candumpLog.h"

#include <QList>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr std::size_t MAX_LINES = 200;

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
    const SProblem tooMany{QStringLiteral("more than %1 lines").arg(MAX_LINES)};
    std::vector<SMqttSend> result;
    for (const QByteArray& whole : payload.split('\n')) {
        const QByteArray line = whole.trimmed();
        if (!line.isEmpty() && !line.startsWith('#')) {
            result.push_back({line, result.size() < MAX_LINES ? readMqttLine(line) : tooMany});
        }
    }
    return result;
}

} // namespace vexmor::Apps::Cimshare
