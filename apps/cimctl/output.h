#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>

namespace vexmor::Cimctl
{

enum class EColor {
    ePlain,
    eBold,
    eDim,
    eRed,
    eGreen,
    eYellow,
    eCyan
};

/// Where the program speaks: data on stdout, everything else (errors, warnings, the summary) on stderr. With `json` every
/// line on either is one JSON object. Colours and other terminal sequences appear only on a terminal, and none when the
/// environment variable NO_COLOR is set.
///
/// Data is buffered and written at most 50 ms later (the event loop must run for that), before anything on stderr, and in
/// the end. There is one object in a program, in the main thread: it also receives Qt's messages and the log lines of the
/// core library.
class COutput : public QObject
{
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
    /// Replaces the line that the last call wrote; for terminals.
    void printOver(const QByteArray& line);
    /// Hands all data to the system. False when it was not taken (disk full), now or before.
    bool flush();

    /// A line on stderr, `text` or, for machines, `object`.
    void report(const QString& text, const QJsonObject& object, EColor color = EColor::ePlain);
    /// A warning on stderr. While warnings are held they are kept back.
    void warn(const QString& text);
    /// A failed operation: "error 103: TCP connect failed. ..."; without the number when `code` is 0.
    void reportFailure(const QString& text, int code);

    /// The text in a colour, for stdout.
    QByteArray paint(EColor color, const QByteArray& text) const;

    /// Keeps warnings back; an operation that fails says why by its code.
    void holdWarnings();
    /// Prints the warnings kept back, when `show` or `isVerbose()`, and forgets them.
    void releaseWarnings(bool show);

    /// Prints the log lines of the core library from this level on (20 progress, 30 refused operations, 50 errors).
    static void showLog(int level);

private:
    static void onQtMessage(QtMsgType type, const QMessageLogContext& context, const QString& text);
    static void onLogLine(int level, const char* source, int line, const char* format, ...)
        __attribute__((format(printf, 4, 5)));

    const bool m_json;
    const bool m_verbose;
    const bool m_terminal;
    const bool m_color;      ///< colours on stdout
    const bool m_errorColor; ///< colours on stderr
    bool m_failed = false;
    bool m_holding = false;
    QStringList m_held;
    QTimer m_flushTimer;
};

} // namespace vexmor::Cimctl
