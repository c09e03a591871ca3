#pragma once

#include "apps/host/hostedInterface.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QTimer>

#include <cstdint>
#include <utility>

namespace vexmor::Apps::Cimctl
{

/// Keeps count of what an interface does while it is open.
class CSummary : public QObject
{
public:
    /// `hosted` must outlive the summary.
    explicit CSummary(CHostedInterface& hosted);

    /// The interface is open.
    void start();
    /// A message that the interface refused was given up.
    void countRefused() { ++m_refused; }
    /// Returns the last line, as a text and for machines: received, sent, refused, lost, errors, mean and peak bus
    /// load.
    std::pair<QString, QJsonObject> finish();

private:
    void sampleBusload();

    CHostedInterface& m_interface;
    std::uint64_t m_sent = 0;
    std::uint64_t m_refused = 0;
    std::uint64_t m_errors = 0;

    QElapsedTimer m_sinceUnknown; ///< since the load was not known, at the latest since the start
    QTimer m_busloadTimer;
    int m_busloadSamples = 0;
    std::int64_t m_busloadSum = 0;
    int m_busloadPeak = 0;
};

} // namespace vexmor::Apps::Cimctl
