#pragma once

#include "apps/cimctl/lineSink.h"
#include "apps/cli/exitCodes.h"
#include "canlog/problem.h"

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QStringList>

#include <vector>

namespace vexmor::Apps::Cimctl
{

enum class EColor { ePlain, eBold, eDim, eRed, eGreen, eYellow, eCyan };

/// The text as a terminal may get it: characters that do not print (control sequences, in a name that came over the
/// network) become question marks.
QByteArray printable(const QString& text);

/// Where the program speaks: data on stdout, everything else (errors, warnings, the summary) on stderr, after the data
/// before it. With `json` every line on either is one JSON object. Colours and other terminal sequences appear only on
/// a terminal, and none when the environment variable NO_COLOR is set. Lives in the main thread.
class COutput : public QObject
{
    Q_OBJECT

public:
    /// With `quiet`, errors alone appear on stderr.
    explicit COutput(bool json, bool quiet = false);

    bool isJson() const { return m_json; }
    /// True when stdout is a terminal.
    bool isTerminal() const { return m_terminal; }

    /// A line of data; the line end is added.
    void print(const QByteArray& line);
    void print(const QJsonObject& object);
    /// A line of titles, and one for each row, in columns.
    void printTable(const QStringList& titles, const std::vector<QStringList>& rows);
    /// A line that the next call writes over; for terminals. Whatever else is printed starts on a line of its own.
    void printOver(const QByteArray& line);
    /// The exit code of a program that ends with this one: refused, with a line on stderr, when data was lost.
    EExitCode finish(EExitCode exitCode);

    /// A line on stderr, `text` or, for machines, `object`; none with `quiet`.
    void report(const QString& text, const QJsonObject& object, EColor color = EColor::ePlain);
    /// The same, also with `quiet`.
    void reportError(const QString& text, const QJsonObject& object, EColor color = EColor::eRed);
    /// What went wrong: "error 103: TCP connect failed. ..."; without the number when there is none.
    void reportProblem(const SProblem& problem);

    /// The text in a colour, for stdout.
    QByteArray paint(EColor color, const QByteArray& text) const;

Q_SIGNALS:
    /// Data was not taken (disk full, reader gone): there is no use in more.
    void failed();

private:
    void endOpenLine();

    const bool m_json;
    const bool m_quiet;
    const bool m_terminal;
    const bool m_color;      ///< colours on stdout
    const bool m_errorColor; ///< colours on stderr
    CLineSink m_data;
    bool m_lineOpen = false; ///< by printOver
};

} // namespace vexmor::Apps::Cimctl
