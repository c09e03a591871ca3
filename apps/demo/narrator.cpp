#include "apps/demo/narrator.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTimer>

#include <cstdio>
#include <unistd.h>

namespace vexmor::Apps::Demo
{
namespace
{
constexpr int WIDTH = 96;
constexpr int TEXT_INDENT = 4;
constexpr int EXAMPLE_INDENT = 8;
/// How long a condition that no event announces may hold unseen.
constexpr int CHECK_INTERVAL_MS = 5;

QStringList broken(const QString& text, int width)
{
    QStringList lines{QString()};
    for (const QString& word : text.simplified().split(QLatin1Char(' '))) {
        if (lines.last().size() + 1 + word.size() > width) {
            lines.append(word);
        } else {
            lines.last() += (lines.last().isEmpty() ? QString() : QStringLiteral(" ")) + word;
        }
    }
    return lines;
}
} // namespace

CNarrator::CNarrator() : m_color(isatty(STDOUT_FILENO) == 1 && qEnvironmentVariableIsEmpty("NO_COLOR")) {}

void CNarrator::chapter(const QString& title)
{
    blankLine();
    const QByteArray head = "-- " + title.toLocal8Bit() + " ";
    print(0, head + QByteArray(WIDTH - head.size(), '-'), EColor::eBold);
}

void CNarrator::step(const QString& title, const QString& explanation)
{
    blankLine();
    print(0, QByteArray::number(++m_steps).rightJustified(2) + "  " + title.toLocal8Bit(), EColor::eBold);
    if (!m_explained.contains(explanation)) {
        m_explained.append(explanation);
        say(explanation);
    }
}

void CNarrator::say(const QString& text)
{
    for (const QString& line : broken(text, WIDTH - TEXT_INDENT)) {
        print(TEXT_INDENT, line.toLocal8Bit());
    }
}

void CNarrator::example(const QByteArray& line, EColor color)
{
    print(EXAMPLE_INDENT, line, color);
}

bool CNarrator::check(bool ok, const QString& fact)
{
    ++m_checks;
    m_failures += ok ? 0 : 1;
    const QByteArray mark = ok ? paint(EColor::eGreen, "ok") : paint(EColor::eRed, "FAILED");
    print(TEXT_INDENT, mark + "  " + fact.toLocal8Bit());
    return ok;
}

void CNarrator::blankLine()
{
    print(0, QByteArray());
}

void CNarrator::print(int indent, const QByteArray& line, EColor color)
{
    const QByteArray text = line.isEmpty() ? line : QByteArray(indent, ' ') + paint(color, line);
    std::printf("%s\n", text.constData());
    std::fflush(stdout); // what is told is seen as it happens
}

QByteArray CNarrator::paint(EColor color, const QByteArray& text) const
{
    static const char* const SEQUENCES[] = {"", "\033[1m", "\033[2m", "\033[31m", "\033[32m", "\033[33m"};
    return m_color && color != EColor::ePlain ? SEQUENCES[static_cast<int>(color)] + text + "\033[0m" : text;
}

bool waitUntil(int limitMs, const std::function<bool()>& condition)
{
    QTimer turns; // an event loop that has nothing to do would not return
    turns.start(CHECK_INTERVAL_MS);
    const QDeadlineTimer deadline(limitMs);
    while (!condition()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

void waitFor(int milliseconds)
{
    waitUntil(milliseconds, [] { return false; });
}

} // namespace vexmor::Apps::Demo
