#pragma once

#include "apps/cimctl/output.h"

#include <QObject>
#include <QStringList>

namespace vexmor::Apps::Cimctl
{

/// Hands what Qt and the core library have to say, in whatever thread, to the output. One object in a program, in the
/// main thread.
///
/// Warnings are held at first: a command that fails says by its code what they say.
class CDiagnostics : public QObject
{
    Q_OBJECT

public:
    /// `verbose` shows also debug lines, and warnings of a command that failed. Log lines of the core library from
    /// `logLevel` on are shown (20 progress, 30 refused operations, 50 errors); 0: none. `output` must outlive the
    /// object.
    CDiagnostics(COutput& output, bool verbose, int logLevel);
    ~CDiagnostics() override;

    bool isVerbose() const { return m_verbose; }
    void warn(const QString& text);
    /// A warning with this text is no news, and is not shown.
    void expect(const QString& text) { m_expected = text; }
    /// The command runs: shows the warnings held so far, and those to come at once.
    void release();
    /// The command failed.
    void drop();

private:
    static void onQtMessage(QtMsgType type, const QMessageLogContext& context, const QString& text);
    static void onLogLine(int level, const char* source, int line, const char* format, ...)
        __attribute__((format(printf, 4, 5)));

    COutput& m_output;
    const bool m_verbose;
    bool m_holding = true;
    QStringList m_held;
    QString m_expected;
};

} // namespace vexmor::Apps::Cimctl
