#include "apps/cimctl/output.h"

#include "apps/cli/program.h"

#include <QJsonDocument>

#include <algorithm>
#include <cstdio>
#include <unistd.h>
#include <utility>

namespace vexmor::Apps::Cimctl
{
namespace
{
bool mayColor(int descriptor, bool json)
{
    return !json && isatty(descriptor) == 1 && qEnvironmentVariableIsEmpty("NO_COLOR");
}

QByteArray paintIf(bool color, EColor which, const QByteArray& text)
{
    static const char* const SEQUENCES[] = {"", "\033[1m", "\033[2m", "\033[31m", "\033[32m", "\033[33m", "\033[36m"};
    if (!color || which == EColor::ePlain) {
        return text;
    }
    return SEQUENCES[static_cast<int>(which)] + text + "\033[0m";
}

QByteArray jsonLine(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

/// Returns a line of a table without the blanks after its last cell.
QByteArray tableLine(QString cells)
{
    while (cells.endsWith(QLatin1Char(' '))) {
        cells.chop(1);
    }
    return printable(cells);
}
} // namespace

QByteArray printable(const QString& text)
{
    return printableText(text).toLocal8Bit();
}

COutput::COutput(bool json, bool quiet)
    : m_json(json),
      m_quiet(quiet),
      m_terminal(isatty(STDOUT_FILENO) == 1),
      m_color(mayColor(STDOUT_FILENO, json)),
      m_errorColor(mayColor(STDERR_FILENO, json))
{
    m_data.open(STDOUT_FILENO, QIODevice::WriteOnly);
    connect(&m_data, &CLineSink::failed, this, &COutput::failed);
}

void COutput::print(const QByteArray& line)
{
    endOpenLine();
    m_data.writeLine(line + '\n');
}

void COutput::print(const QJsonObject& object)
{
    print(jsonLine(object));
}

void COutput::printTable(const QStringList& titles, const std::vector<QStringList>& rows)
{
    QString head;
    QStringList lines;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        lines.append(QString());
    }
    for (int column = 0; column < titles.size(); ++column) {
        auto width = titles.at(column).size();
        for (const QStringList& row : rows) {
            width = std::max(width, row.at(column).size());
        }
        head += titles.at(column).leftJustified(width + 2);
        for (int i = 0; i < lines.size(); ++i) {
            lines[i] += rows[static_cast<std::size_t>(i)].at(column).leftJustified(width + 2);
        }
    }
    print(paint(EColor::eBold, tableLine(head)));
    for (const QString& line : std::as_const(lines)) {
        print(tableLine(line));
    }
}

void COutput::printOver(const QByteArray& line)
{
    m_data.writeLine('\r' + line + "\033[K");
    m_lineOpen = true;
}

void COutput::endOpenLine()
{
    if (m_lineOpen) {
        m_data.writeLine("\n");
        m_lineOpen = false;
    }
}

EExitCode COutput::finish(EExitCode exitCode)
{
    endOpenLine();
    if (m_data.handOver()) {
        return exitCode;
    }
    reportProblem({QStringLiteral("the output cannot be written")});
    return eRefused;
}

void COutput::report(const QString& text, const QJsonObject& object, EColor color)
{
    if (!m_quiet) {
        reportError(text, object, color);
    }
}

void COutput::reportError(const QString& text, const QJsonObject& object, EColor color)
{
    endOpenLine();
    m_data.handOver(); // keeps the order of stdout and stderr
    if (m_json) {
        std::fprintf(stderr, "%s\n", jsonLine(object).constData());
        return;
    }
    QByteArrayList lines;
    for (const QString& line : text.split(QLatin1Char('\n'))) {
        lines.append(printable(line));
    }
    std::fprintf(stderr, "%s\n", paintIf(m_errorColor, color, lines.join('\n')).constData());
}

void COutput::reportProblem(const SProblem& problem)
{
    QString head = QStringLiteral("error: ");
    QJsonObject object{{QStringLiteral("event"), QStringLiteral("failure")}, {QStringLiteral("text"), problem.text}};
    if (problem.code != 0) {
        head = QStringLiteral("error %1: ").arg(problem.code);
        object.insert(QStringLiteral("code"), problem.code);
    }
    reportError(head + problem.text, object);
}

QByteArray COutput::paint(EColor color, const QByteArray& text) const
{
    return paintIf(m_color, color, text);
}

} // namespace vexmor::Apps::Cimctl
