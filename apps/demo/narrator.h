#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>

namespace vexmor::Apps::Demo
{

/// Colours, on a terminal.
enum class EColor { ePlain, eBold, eDim, eRed, eGreen, eYellow };

/// Tells the demonstration on stdout: chapters, numbered steps, sentences, examples, and what was checked.
class CNarrator
{
public:
    CNarrator();

    void chapter(const QString& title);
    /// Begins the next step and says in a sentence or two what it is about, unless that was said before.
    void step(const QString& title, const QString& explanation);
    /// Sentences; how they are broken into lines in the source means nothing.
    void say(const QString& text);
    /// A line as it stands, like a message.
    void example(const QByteArray& line, EColor color = EColor::ePlain);
    /// Tells whether something is as it should be. Gives `ok`.
    bool check(bool ok, const QString& fact);
    void blankLine();

    int checks() const { return m_checks; }
    int failures() const { return m_failures; }

private:
    void print(int indent, const QByteArray& line, EColor color = EColor::ePlain);
    QByteArray paint(EColor color, const QByteArray& text) const;

    const bool m_color;
    QStringList m_explained;
    int m_steps = 0;
    int m_checks = 0;
    int m_failures = 0;
};

/// A gateway answers sooner.
constexpr int ANSWER_LIMIT_MS = 2000;

/// Runs the event loop until a condition holds, checked after each turn; false when it does not within the limit.
bool waitUntil(int limitMs, const std::function<bool()>& condition);
/// Runs the event loop for so long.
void waitFor(int milliseconds);

} // namespace vexmor::Apps::Demo
