#pragma once

#include "apps/cimctl/output.h"

#include <QObject>
#include <QStringList>

namespace vexmor::Apps::Cimctl
{

/// Passes messages of Qt and log lines of the core library, from any thread, to the output. A program has one object,
/// in the main thread.
///
/// Warnings are held back until the command runs: if the command fails before that, its error states the same.
class CDiagnostics : public QObject
{
    Q_OBJECT

public:
    /// With `verbose`, debug lines and the warnings of a failed command are shown as well. Log lines of the core
    /// library are shown from `logLevel` on (20 progress, 30 refused operations, 50 errors); 0 shows none. `output`
    /// must outlive the object.
    CDiagnostics(COutput& output, bool verbose, int logLevel);
    ~CDiagnostics() override;

    bool isVerbose() const { return m_verbose; }
    void warn(const QString& text);
    /// Hides warnings with this text, because they are expected.
    void expect(const QString& text) { m_expected = text; }
    /// Shows the warnings held so far, and all later ones at once. To be called when the command runs.
    void release();
    /// Drops the warnings held so far, unless `verbose` is set. To be called when the command has failed.
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
