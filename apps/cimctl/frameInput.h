#pragma once

#include "canlog/problem.h"
#include "cim/canMessage.h"

#include <QByteArray>
#include <QObject>
#include <QSocketNotifier>

namespace vexmor::Apps::Cimctl
{

/// Frames that come over the standard input, ID#DATA, one per line; empty lines and comments (#) are skipped. Keeps
/// at most one piece of the input, and reads on when that is used up.
class CFrameInput : public QObject
{
    Q_OBJECT

public:
    static constexpr int MAX_LINE = 4096; ///< bytes

    CFrameInput();

    /// Takes the next frame; false while none has come, and after the end.
    bool next(Cim::CCanMessage& message);
    /// The input ended, or a line is wrong.
    bool hasEnded() const { return m_hasEnded; }
    /// What is wrong, with the number of the line.
    const Failure& failure() const { return m_failure; }

Q_SIGNALS:
    /// `next` or `hasEnded` has news.
    void changed();

private:
    void read();
    void fail(const QString& why);

    QSocketNotifier m_notifier;
    QByteArray m_bytes; ///< lines that were not taken yet; the last one may be incomplete
    int m_line = 0;     ///< number of the last line that was taken
    bool m_inputEnded = false;
    bool m_hasEnded = false;
    Failure m_failure;
};

} // namespace vexmor::Apps::Cimctl
