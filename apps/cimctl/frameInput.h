#pragma once

#include "canlog/problem.h"
#include "cim/canMessage.h"

#include <QByteArray>
#include <QObject>
#include <QSocketNotifier>

namespace vexmor::Apps::Cimctl
{

/// Reads frames from the standard input, ID#DATA, one per line; skips empty lines and comments (#). Keeps at most one
/// piece of the input, and reads the next piece when all lines of the present piece were taken.
class CFrameInput : public QObject
{
    Q_OBJECT

public:
    static constexpr int MAX_LINE = 4096; ///< Maximum length of a line in bytes.

    CFrameInput();

    /// Takes the next frame. Returns false when none has arrived yet, and after the end.
    bool next(Cim::CCanMessage& message);
    /// Returns true when the input has ended or a line is wrong.
    bool hasEnded() const { return m_hasEnded; }
    /// Returns what is wrong, with the number of the line, or nothing.
    const Failure& failure() const { return m_failure; }

Q_SIGNALS:
    /// Emitted when `next` or `hasEnded` may return something else than before.
    void changed();

private:
    void read();
    void fail(const QString& why);

    QSocketNotifier m_notifier;
    QByteArray m_bytes; ///< Lines that were not taken yet; the last one may be incomplete.
    int m_line = 0;     ///< Number of the last line that was taken.
    bool m_inputEnded = false;
    bool m_hasEnded = false;
    Failure m_failure;
};

} // namespace vexmor::Apps::Cimctl
