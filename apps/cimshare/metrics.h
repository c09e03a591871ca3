#pragma once

#include "apps/cimshare/protocol.h"

namespace vexmor::Apps::Cimshare
{

/// What Prometheus is to know of the service, in its text format. Unknown values are left out.
QByteArray metricsText(const CSharedBuses& buses, const CProtocols& protocols, const CEventLog& log);

/// Replaces a file that all users can read, as a whole or not at all.
Failure replaceFile(const QString& path, const QByteArray& content);

} // namespace vexmor::Apps::Cimshare
