#pragma once

#include "apps/cimshare/protocol.h"

namespace vexmor::Apps::Cimshare
{

/// Returns the metrics of the service in the text format of Prometheus. Values that are not known are left out.
QByteArray metricsText(const CSharedBuses& buses, const CProtocols& protocols, const CEventLog& log);

/// Replaces a file, as a whole or not at all, and lets all users read it. Fails when it cannot be written.
Failure replaceFile(const QString& path, const QByteArray& content);

} // namespace vexmor::Apps::Cimshare
