#pragma once

#include "cim/canMessage.h"

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

/// What goes over MQTT, as values.
namespace vexmor::Apps::Cimshare
{

/// One line of what was sent to be put on a bus: a message, or what is wrong with it.
struct SMqttSend {
    QByteArray line;
    Cim::CCanMessage message;
    QString problem; ///< empty: none
};

/// Reads log lines, or frames alone like 123#1122, a line each; empty lines and comments are left out.
std::vector<SMqttSend> readMqttLines(const QByteArray& payload);

/// A message in a publication of its own: 8 bytes of microseconds since the epoch, low byte first, a byte of flags, the
/// data. Its identifier is the last level of the topic, a decimal number.
QByteArray singlePayload(const Cim::CCanMessage& message, std::int64_t microseconds);
SMqttSend readSingle(const QString& topicLevel, const QByteArray& payload);

} // namespace vexmor::Apps::Cimshare
