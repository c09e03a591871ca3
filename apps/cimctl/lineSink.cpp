#include "apps/cimctl/lineSink.h"

namespace vexmor::Apps::Cimctl
{
namespace
{
constexpr int FLUSH_DELAY_MS = 50;
}

CLineSink::CLineSink()
{
    m_timer.setSingleShot(true);
    m_timer.setInterval(FLUSH_DELAY_MS);
    connect(&m_timer, &QTimer::timeout, this, [this] {
        if (!handOver()) {
            Q_EMIT failed();
        }
    });
}

void CLineSink::writeLine(const QByteArray& line)
{
    write(line);
    if (!m_timer.isActive()) {
        m_timer.start();
    }
}

bool CLineSink::handOver()
{
    return (!isOpen() || flush()) && error() == NoError;
}

} // namespace vexmor::Apps::Cimctl
