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

/// Returns the text with a question mark in place of each character that is not printable: a name from the network may
/// contain sequences that control a terminal.
QByteArray printable(const QString& text);

/// The output of the program: data on stdout; errors, warnings and the summary on stderr, in the order of the calls.
/// With `json`, every line is one JSON object. Colours and other terminal sequences are only printed to a terminal, and
/// never when the environment variable NO_COLOR is set. The object belongs to the main thread.
class COutput : public QObject
{
    Q_OBJECT

public:
    /// With `quiet`, only errors are printed on stderr.
    explicit COutput(bool json, bool quiet = false);

    bool isJson() const { return m_json; }
    /// Returns true when stdout is a terminal.
    bool isTerminal() const { return m_terminal; }

    /// Prints a line of data; the line end is added.
    void print(const QByteArray& line);
    void print(const QJsonObject& object);
    /// Prints a line of titles and one line per row, in columns.
    void printTable(const QStringList& titles, const std::vector<QStringList>& rows);
    /// Prints a line that the next call overwrites; for terminals. All other output starts on a new line.
    void printOver(const QByteArray& line);
    /// Completes the output. Returns `exitCode`, or eRefused, with an error on stderr, when data was lost.
    EExitCode finish(EExitCode exitCode);

    /// Prints a line on stderr, `text` or, with `json`, `object`. Prints nothing with `quiet`.
    void report(const QString& text, const QJsonObject& object, EColor color = EColor::ePlain);
    /// Prints a line on stderr, like `report`, but also with `quiet`.
    void reportError(const QString& text, const QJsonObject& object, EColor color = EColor::eRed);
    /// Prints an error on stderr: "error 103: TCP connect failed. ...", without a number when the problem has no code.
    void reportProblem(const SProblem& problem);

    /// Returns the text in a colour when stdout shows colours, otherwise unchanged.
    QByteArray paint(EColor color, const QByteArray& text) const;

Q_SIGNALS:
    /// Emitted when data could not be written (disk full, closed pipe). Later output will fail as well.
    void failed();

private:
    void endOpenLine();

    const bool m_json;
    const bool m_quiet;
    const bool m_terminal;
    const bool m_color;      ///< Colours on stdout.
    const bool m_errorColor; ///< Colours on stderr.
    CLineSink m_data;
    bool m_lineOpen = false; ///< The last line is from printOver.
};

} // namespace vexmor::Apps::Cimctl
