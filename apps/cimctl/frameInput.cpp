#include "apps/cimctl/frameInput.h"

#include "canlog/candumpLog.h"

#include <cerrno>
#include <unistd.h>

namespace vexmor::Apps::Cimctl
{

CFrameInput::CFrameInput() : m_notifier(STDIN_FILENO, QSocketNotifier::Read)
{
    connect(&m_notifier, &QSocketNotifier::activated, this, &CFrameInput::read);
}

void CFrameInput::read()
{
    char piece[MAX_LINE];
    const ssize_t count = ::read(STDIN_FILENO, piece, sizeof piece);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    m_notifier.setEnabled(false); // until `next` needs more input
    if (count > 0) {
        m_bytes.append(piece, static_cast<int>(count));
    } else {
        m_inputEnded = true;
    }
    Q_EMIT changed();
}

bool CFrameInput::next(Cim::CCanMessage& message)
{
    while (!m_hasEnded) {
        int end = m_bytes.indexOf('\n');
        if (end < 0 && m_inputEnded) {
            end = m_bytes.size();
            m_hasEnded = m_bytes.isEmpty();
        }
        if (end > MAX_LINE || (end < 0 && m_bytes.size() > MAX_LINE)) {
            ++m_line;
            fail(QStringLiteral("longer than %1 bytes").arg(MAX_LINE));
        } else if (end < 0) {
            m_notifier.setEnabled(true);
            return false;
        } else if (!m_hasEnded) {
            ++m_line;
            const QByteArray text = m_bytes.left(end).trimmed();
            m_bytes.remove(0, end + 1);
            if (text.isEmpty() || text.startsWith('#')) {
                continue;
            }
            auto frame = CanLog::parseFrame(text);
            if (frame) {
                message = *frame;
                return true;
            }
            fail(frame.problem().text);
        }
    }
    return false;
}

void CFrameInput::fail(const QString& why)
{
    m_hasEnded = true;
    m_failure = wrongUsage(QStringLiteral("standard input, line %1: %2").arg(m_line).arg(why));
}

} // namespace vexmor::Apps::Cimctl
