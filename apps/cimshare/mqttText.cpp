#include "apps/cimshare/mqttText.h"

#include <QJsonDocument>
#include <QList>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr std::size_t MAX_LINES = 200;
constexpr int DATA_BEGIN = 4; // behind "123#"

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

QByteArray SMqttForm::message(const CanLog::SLogEntry& entry) const
{
    if (!isJson()) {
        return CanLog::formatLogLine(entry);
    }
    return R"({"time":)" + QByteArray::number(static_cast<double>(entry.microseconds) / 1e6, 'f', 6) + R"(,"id":)" +
           QByteArray::number(entry.message.id().value()) + R"(,"data":")" +
           CanLog::formatFrame(entry.message).mid(DATA_BEGIN) + R"(","direction":")" +
           (entry.direction == 'T' ? "tx" : "rx") + "\"}";
}

QByteArray SMqttForm::messages(const QByteArrayList& each) const
{
    return isJson() ? '[' + each.join(',') + ']' : each.join('\n');
}

QByteArray SMqttForm::object(QJsonObject object) const
{
    for (auto value = object.begin(); isJson() && value != object.end(); ++value) {
        if (value.value().isBool()) {
            value.value() = value.value().toBool() ? 1 : 0;
        }
    }
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

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
