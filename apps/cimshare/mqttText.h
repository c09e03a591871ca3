#pragma once

#include "apps/host/mailbox.h"
#include "canlog/problem.h"
#include "cim/canMessage.h"

#include <QByteArrayList>
#include <QJsonObject>

#include <functional>

/// The texts of MQTT payloads, as functions of values.
namespace vexmor::Apps::Cimshare
{

/// The user's choices for topics and payloads.
struct SMqttForm {
    QString topic;        ///< The beginning of all topics.
    bool isJson = false;  ///< All payloads are JSON objects with a time, and with 0 or 1 instead of false and true.
    bool hasLast = false; ///< The last message with each identifier is published as well.

    /// Returns a message as a line of candump's log format with the name of its bus, or as a JSON object.
    QByteArray message(const SBusRecord& record, const QByteArray& busName) const;
    /// Returns several texts of `message` as one payload.
    QByteArray messages(const QByteArrayList& texts) const;
    /// Returns the text of an object; states and events are JSON in both formats.
    QByteArray object(QJsonObject object) const;
};

/// Receives a line of a publication, and the message that it has or the problem with it.
using MqttLineReader = std::function<void(const QByteArray& line, Result<Cim::CCanMessage> message)>;

/// Calls `onLine` for each line of a publication: a line of candump's log format, or only a frame like 123#1122. Empty
/// lines and comments are skipped. Each line after the first 200 is passed with a problem.
void readMqttLines(const QByteArray& payload, const MqttLineReader& onLine);

} // namespace vexmor::Apps::Cimshare
