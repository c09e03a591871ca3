#pragma once

#include "apps/common/failure.h"

#include <QByteArray>
#include <QFile>
#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>

namespace vexmor::Apps::Cimctl
{

enum class EColor { ePlain, eBold, eDim, eRed, eGreen, eYellow, eCyan };

/// The text as a terminal may get it: characters that do not print (control sequences, in a name that came over the
/// network) become question marks.
QByteArray printable(const QString& text);

/// Where the program speaks: data on stdout, everything else (errors, warnings, the summary) on stderr. With `json`
/// every line on either is one JSON object. Colours and other terminal sequences appear only on a terminal, and none
/// when the environment variable NO_COLOR is set.
///
/// Data, on stdout and in the log file, is buffered and written at most 50 ms later (the event loop must run for that),
/// before anything on stderr, and in the end. There is one object in a program, in the main thread: it also receives
/// Qt's messages and the log lines of the core library, which come from any thread.
class COutput : public QObject
{
    Q_OBJECT

public:
    COutput(bool json, bool verbose);
    ~COutput() override;

    bool isJson() const { return m_json; }
    bool isVerbose() const { return m_verbose; }
    /// True when stdout is a terminal.
    bool isTerminal() const { return m_terminal; }

    /// A line of data; the line end is added.
    void print(const QByteArray& line);
    void print(const QJsonObject& object);
    /// A line that the next call writes over; for terminals. Whatever else is printed starts on a line of its own.
    void printOver(const QByteArray& line);
    /// From now on `log` writes to this file. Fails when it cannot be written.
    void openLog(const QString& file);
    /// A line for the log file, if there is one; the line end is added.
    void log(const QByteArray& line);
    /// Hands all data to the system. False when it was not taken, now or before.
    bool flush();
    /// The exit code of a program that ends with this one: refused, with a line on stderr, when data was lost.
    EExitCode finish(EExitCode exitCode);

    /// A line on stderr, `text` or, for machines, `object`.
    void report(const QString& text, const QJsonObject& object, EColor color = EColor::ePlain);
    /// A warning on stderr. Warnings are held at first, until `releaseWarnings`.
    void warn(const QString& text);
    /// A failed operation: "error 103: TCP connect failed. ..."; without the number when `code` is 0.
    void reportFailure(const QString& text, int code);

    /// The text in a colour, for stdout.
    QByteArray paint(EColor color, const QByteArray& text) const;

    /// Prints the warnings held so far when `show` or `isVerbose()`, and those to come at once. A command that fails
    /// says by its code what they say, and does not show them.
    void releaseWarnings(bool show);

    /// Prints the log lines of the core library from this level on (20 progress, 30 refused operations, 50 errors).
    static void showLog(int level);

Q_SIGNALS:
    /// Data was not taken (disk full, reader gone): there is no use in more.
    void failed();

private:
    void startFlushing();
    void endOpenLine();
    static void onQtMessage(QtMsgType type, const QMessageLogContext& context, const QString& text);
    static void onLogLine(int level, const char* source, int line, const char* format, ...)
        __attribute__((format(printf, 4, 5)));

    const bool m_json;
    const bool m_verbose;
    const bool m_terminal;
    const bool m_color;      ///< colours on stdout
    const bool m_errorColor; ///< colours on stderr
    QFile m_log;
    QString m_problem;       ///< why data was not taken; empty: all was
    bool m_lineOpen = false; ///< by printOver
    bool m_holding = true;
    QStringList m_held;
    QTimer m_flushTimer;
};

} // namespace vexmor::Apps::Cimctl
