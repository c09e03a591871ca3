#include "apps/cimshare/mqttText.h"

#include "canlog/candumpLog.h"

#include <QList>

namespace vexmor::Apps::Cimshare
{
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

} // namespace vexmor::Apps::Cimshare
