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

/// Counts messages and errors of an open interface, and samples its bus load.
class CSummary : public QObject
{
public:
    /// `hosted` must outlive the summary.
    explicit CSummary(CHostedInterface& hosted);

    /// Starts to count. To be called when the interface is open.
    void start();
    /// Counts a message that was refused and dropped.
    void countRefused() { ++m_refused; }
    /// Returns the summary as a text and as a JSON object: received, sent, refused, lost, errors, mean and peak bus
    /// load.
    std::pair<QString, QJsonObject> finish();

private:
    void sampleBusload();

    CHostedInterface& m_interface;
    std::uint64_t m_sent = 0;
    std::uint64_t m_refused = 0;
    std::uint64_t m_errors = 0;

    QElapsedTimer m_sinceUnknown; ///< Time since the bus load was last unknown, or since the start.
    QTimer m_busloadTimer;
    int m_busloadSamples = 0;
    std::int64_t m_busloadSum = 0;
    int m_busloadPeak = 0;
};

} // namespace vexmor::Apps::Cimctl
