// The command that compares two logs: compare.
#include "apps/cimctl/command.h"
#include "canlog/logComparison.h"

#include <QJsonObject>

namespace vexmor::Apps::Cimctl
{
namespace
{
constexpr int ENTRIES_PER_CALL = 100000; ///< Log entries read per call.

struct SCompareOptions {
    QString before;
    QString after;
};

QJsonObject jsonOf(const CanLog::SLogDifference::SSide& side)
{
    return {{QStringLiteral("messages"), static_cast<qint64>(side.messages)},
            {QStringLiteral("rate"), side.rate ? QJsonValue(*side.rate) : QJsonValue()},
            {QStringLiteral("data"), QString::fromLatin1(QByteArray(side.data).replace(' ', "").toLower())}};
}

QByteArray rateText(const CanLog::SLogDifference::SSide& side)
{
    constexpr int COLUMNS = 9;
    return (side.rate ? QByteArray::number(*side.rate, 'f', 1) : QByteArray("-")).rightJustified(COLUMNS) + "  ";
}

void print(COutput& output, const CanLog::SLogDifference& found)
{
    if (output.isJson()) {
        output.print(QJsonObject{{QStringLiteral("event"), QStringLiteral("difference")},
                                 {QStringLiteral("id"), found.id},
                                 {QStringLiteral("differs"), found.text()},
                                 {QStringLiteral("before"), jsonOf(found.before)},
                                 {QStringLiteral("after"), jsonOf(found.after)}});
        return;
    }
    output.print(CanLog::formatId(found.id) + "  " + found.text().toLatin1().leftJustified(10) +
                 rateText(found.before) + found.before.data.leftJustified(3 * CanLog::MAX_DATA_LENGTH) +
                 rateText(found.after) + found.after.data);
}

EExitCode compare(SContext& context, const SCompareOptions& options)
{
    CanLog::CLogComparison comparison;
    require(comparison.open(options.before, options.after));
    while (valueOf(comparison.readMore(ENTRIES_PER_CALL))) {
    }
    if (!context.output.isJson() && !comparison.differences().empty()) {
        context.output.print("ID   differs    before/s  data                     after/s  data");
    }
    for (const CanLog::SLogDifference& found : comparison.differences()) {
        print(context.output, found);
    }
    context.output.report(comparison.text(), {{QStringLiteral("event"), QStringLiteral("compared")},
                                              {QStringLiteral("text"), comparison.text()}});
    return eDone;
}
} // namespace

void addCompare(CLI::App& app, Action& chosen)
{
    const auto [command, options] =
        addCommand(app, chosen, "compare",
                   "Compare two logs: print the identifiers that are missing, new, or differ in rate or data", compare);
    addText(command, "BEFORE", options.before, "The earlier log, in candump's format; -: standard input").required();
    addText(command, "AFTER", options.after, "The later log").required();
    addExamples(command, {"cimctl compare monday.log tuesday.log", "cimctl compare monday.log - --json < tuesday.log"});
}

} // namespace vexmor::Apps::Cimctl
