#include "apps/cimctl/lineSink.h"

#include <cstdio>

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
        if (!flush()) {
            Q_EMIT failed();
        }
    });
}

CLineSink::~CLineSink()
{
    flush();
}

bool CLineSink::openFile(const QString& path)
{
    m_file.setFileName(path);
    return m_file.open(QIODevice::WriteOnly | QIODevice::Truncate);
}

bool CLineSink::openStdout()
{
    return m_file.open(fileno(stdout), QIODevice::WriteOnly);
}

void CLineSink::write(const QByteArray& bytes)
{
    m_file.write(bytes);
    if (!m_timer.isActive()) {
        m_timer.start();
    }
}

bool CLineSink::flush()
{
    return !m_file.isOpen() || (m_file.flush() && m_file.error() == QFileDevice::NoError);
}

QString CLineSink::problem() const
{
    return m_file.errorString();
}

} // namespace vexmor::Apps::Cimctl
