#include "apps/cimshare/mqttText.h"

#include "canlog/candumpLog.h"

#include <QList>
#include <QtEndian>

#include <algorithm>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr int STAMP_SIZE = 8;
constexpr int HEAD_SIZE = STAMP_SIZE + 1;

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

QByteArray singlePayload(const Cim::CCanMessage& message, std::int64_t microseconds)
{
    QByteArray payload(HEAD_SIZE, '\0');
    qToLittleEndian(microseconds, payload.data());
    return payload.append(reinterpret_cast<const char*>(message.data()), static_cast<int>(message.length()));
}

SMqttSend readSingle(const QString& topicLevel, const QByteArray& payload)
{
    SMqttSend send{topicLevel.toUtf8() + ' ' + payload.toHex(), {}, {}};
    bool isNumber = false;
    const uint id = topicLevel.toUInt(&isNumber);
    const QByteArray data = payload.mid(HEAD_SIZE);
    if (!isNumber || id > CanLog::MAX_ID || payload.size() < HEAD_SIZE || payload.at(STAMP_SIZE) != 0 ||
        data.size() > 8) {
        send.problem = QStringLiteral("no data frame with an 11-bit identifier");
        return send;
    }
    unsigned char bytes[8] = {};
    std::copy(data.begin(), data.end(), bytes);
    send.message = Cim::CCanMessage(Cim::CCanId::fromValue(static_cast<std::uint16_t>(id)),
                                    static_cast<unsigned int>(data.size()), bytes);
    return send;
}

} // namespace vexmor::Apps::Cimshare
