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
    const QByteArray data = CanLog::formatFrame(entry.message).mid(DATA_BEGIN);
    return QString::asprintf(R"({"time":%.6f,"id":%d,"data":"%s","direction":"%s"})", entry.microseconds / 1e6,
                             entry.message.id().value(), data.constData(), entry.direction == 'T' ? "tx" : "rx")
        .toLatin1();
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
