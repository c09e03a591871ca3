#include "apps/cimshare/mqttText.h"

#include "canlog/candumpLog.h"

#include <QJsonDocument>
#include <QList>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr int MAX_LINES = 200;

/// Reads a log line, or a line with only a frame.
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
        return SProblem{QStringLiteral("not a frame that a T93 can send")};
    }
    return (*entry)->message;
}
} // namespace

QByteArray SMqttForm::message(const SBusRecord& record, const QByteArray& busName) const
{
    const Cim::CCanMessage& message = record.message;
    if (!isJson) {
        return CanLog::formatLogLine({record.microseconds, busName, message, record.sent ? 'T' : 'R'});
    }
    const QByteArray data(reinterpret_cast<const char*>(message.data()), static_cast<int>(message.length()));
    return QString::asprintf(R"({"time":%.6f,"id":%d,"data":"%s","direction":"%s"})", record.microseconds / 1e6,
                             message.id().value(), data.toHex().constData(), record.sent ? "tx" : "rx")
        .toLatin1();
}

QByteArray SMqttForm::messages(const QByteArrayList& each) const
{
    return isJson ? '[' + each.join(',') + ']' : each.join('\n');
}

QByteArray SMqttForm::object(QJsonObject object) const
{
    for (auto value = object.begin(); isJson && value != object.end(); ++value) {
        if (value.value().isBool()) {
            value.value() = value.value().toBool() ? 1 : 0;
        }
    }
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

void readMqttLines(const QByteArray& payload, const MqttLineReader& onLine)
{
    const SProblem tooMany{QStringLiteral("more than %1 lines").arg(MAX_LINES)};
    int lines = 0;
    for (const QByteArray& whole : payload.split('\n')) {
        const QByteArray line = whole.trimmed();
        if (!line.isEmpty() && !line.startsWith('#')) {
            onLine(line, ++lines <= MAX_LINES ? readMqttLine(line) : tooMany);
        }
    }
}

} // namespace vexmor::Apps::Cimshare
