#pragma once

#include "apps/host/mailbox.h"
#include "canlog/problem.h"
#include "cim/canMessage.h"

#include <QByteArrayList>
#include <QJsonObject>

#include <functional>

/// What goes over MQTT, as values.
namespace vexmor::Apps::Cimshare
{

/// What the user chose for topics and payloads.
struct SMqttForm {
    QString topic;        ///< The beginning of all topics.
    bool isJson = false;  ///< All payloads are JSON, with a time, and 0 or 1 for bool.
    bool hasLast = false; ///< The last message with each identifier is published as well.

    /// A line of candump's log format with the name of a bus, or a JSON object.
    QByteArray message(const SBusRecord& record, const QByteArray& busName) const;
    /// Several of these in one payload.
    QByteArray messages(const QByteArrayList& each) const;
    /// A JSON object in both formats.
    QByteArray object(QJsonObject object) const;
};

/// Takes a line of what was sent to be put on a bus, and its message or what is wrong with it.
using MqttLineReader = std::function<void(const QByteArray& line, Result<Cim::CCanMessage> message)>;

/// Reads log lines, or frames alone like 123#1122, a line each; empty lines and comments are left out. Lines after the
/// first 200 are not read: they have a problem.
void readMqttLines(const QByteArray& payload, const MqttLineReader& onLine);

} // namespace vexmor::Apps::Cimshare
