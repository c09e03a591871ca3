#include "apps/cimctl/demoNarrator.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QStringList>

namespace vexmor::Apps::Cimctl
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
    for (const QString& word : text.split(QLatin1Char(' '))) {
        if (lines.last().size() + 1 + word.size() > width) {
            lines.append(word);
        } else {
            lines.last() += (lines.last().isEmpty() ? QString() : QStringLiteral(" ")) + word;
        }
    }
    return lines;
}
} // namespace

void CDemoNarrator::chapter(const QString& title)
{
    m_chapter = title;
    blankLine();
    const QByteArray head = "-- " + title.toLocal8Bit() + " ";
    print(0, m_output.paint(EColor::eBold, head + QByteArray(WIDTH - head.size(), '-')));
}

void CDemoNarrator::step(const QString& title, const QString& explanation)
{
    m_step = title;
    blankLine();
    print(0,
          m_output.paint(EColor::eBold, QByteArray::number(++m_steps).rightJustified(2) + "  " + title.toLocal8Bit()));
    if (!m_explained.contains(explanation)) {
        m_explained.append(explanation);
        say(explanation);
    }
}

void CDemoNarrator::say(const QString& text)
{
    for (const QString& line : broken(text, WIDTH - TEXT_INDENT)) {
        print(TEXT_INDENT, line.toLocal8Bit());
    }
}

void CDemoNarrator::example(const QByteArray& line, EColor color)
{
    print(EXAMPLE_INDENT, m_output.paint(color, line));
}

bool CDemoNarrator::check(bool ok, const QString& fact)
{
    ++m_checks;
    m_failures += ok ? 0 : 1;
    if (m_output.isJson()) {
        m_output.print(QJsonObject{{QStringLiteral("event"), QStringLiteral("check")},
                                   {QStringLiteral("chapter"), m_chapter},
                                   {QStringLiteral("step"), m_step},
                                   {QStringLiteral("ok"), ok},
                                   {QStringLiteral("fact"), fact}});
    } else {
        const QByteArray mark = ok ? m_output.paint(EColor::eGreen, "ok") : m_output.paint(EColor::eRed, "FAILED");
        print(TEXT_INDENT, mark + "  " + fact.toLocal8Bit());
    }
    m_output.flush(); // what is told is seen as it happens
    return ok;
}

void CDemoNarrator::blankLine()
{
    print(0, QByteArray());
}

void CDemoNarrator::print(int indent, const QByteArray& line)
{
    if (!m_output.isJson()) {
        m_output.print(line.isEmpty() ? line : QByteArray(indent, ' ') + line);
    }
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

} // namespace vexmor::Apps::Cimctl
