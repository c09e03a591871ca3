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
} // namespace

std::vector<SMqttSend> readMqttLines(const QByteArray& payload)
{
    std::vector<SMqttSend> result;
    for (const QByteArray& whole : payload.split('\n')) {
        SMqttSend send{whole.trimmed(), {}, {}};
        CanLog::SLogEntry entry;
        if (CanLog::parseFrame(send.line, send.message, send.problem)) {
            send.problem.clear();
        } else if (send.line.startsWith('(')) {
            send.problem.clear();
            switch (CanLog::parseLogLine(send.line, entry, send.problem)) {
            case CanLog::ELine::eFrame:
                send.message = entry.message;
                break;
            case CanLog::ELine::eSkipped:
                send.problem = QStringLiteral("no frame that a T93 can send");
                break;
            case CanLog::ELine::eMalformed:
                break;
            }
        } else if (send.line.isEmpty() || send.line.startsWith('#')) {
            continue;
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
