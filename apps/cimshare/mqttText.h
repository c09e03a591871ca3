#pragma once

#include "canlog/problem.h"
#include "cim/canMessage.h"

#include <QByteArray>

#include <vector>

/// What goes over MQTT, as values.
namespace vexmor::Apps::Cimshare
{

/// One line of what was sent to be put on a bus: a message, or what is wrong with it.
struct SMqttSend {
    QByteArray line;
    Result<Cim::CCanMessage> message;
};

/// Reads log lines, or frames alone like 123#1122, a line each; empty lines and comments are left out. Lines after the
/// first 200 are not read: they have a problem.
std::vector<SMqttSend> readMqttLines(const QByteArray& payload);

} // namespace vexmor::Apps::Cimshare
