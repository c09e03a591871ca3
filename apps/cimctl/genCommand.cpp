// The command that makes traffic up: gen.
#include "apps/cimctl/command.h"
#include "apps/cimctl/gatewayRun.h"
#include "apps/cimctl/messagePrinter.h"
#include "apps/cimctl/sender.h"
#include "canlog/candumpLog.h"

#include <climits>
#include <random>

namespace vexmor::Apps::Cimctl
{
namespace
{
struct SGenOptions {
    STargetOptions target;
    SShowOptions show;
    QString ids = QStringLiteral("0-7FF"); ///< ID or LOW-HIGH
    int length = -1;                       ///< -1: any
    int count = 0;                         ///< 0: no end
    double gap = 200;                      ///< ms
    int seed = 0;
};

/// Messages of any content, the same for the same seed.
CSender::Source randomMessages(const SGenOptions& options, const SFilter& ids)
{
    return [options, ids, random = std::mt19937(static_cast<unsigned int>(options.seed)),
            index = 0](CanLog::SLogEntry& entry) mutable {
        if (options.count > 0 && index == options.count) {
            return false;
        }
        const auto any = [&random](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
        unsigned char data[CanLog::MAX_DATA_LENGTH];
        for (unsigned char& byte : data) {
            byte = static_cast<unsigned char>(any(0, UCHAR_MAX));
        }
        const int length = options.length < 0 ? any(0, CanLog::MAX_DATA_LENGTH) : options.length;
        const auto id = static_cast<std::uint16_t>(any(ids.low, ids.high));
        entry.message = Cim::CCanMessage(Cim::CCanId::fromValue(id), static_cast<unsigned char>(length), data);
        entry.microseconds = static_cast<std::int64_t>(index * options.gap * 1000);
        ++index;
        return true;
    };
}

EExitCode gen(SContext& context, const SGenOptions& options)
{
    const SFilter ids = valueOf(readFilter(options.ids));
    if (ids.inverse || ids.mask != SFilter().mask || ids.high > CanLog::MAX_ID) {
        failUsage(QStringLiteral("identifiers %1: must be ID or LOW-HIGH, hexadecimal, at most 7FF").arg(options.ids));
    }
    return sendAll(context, options.target, options.show, randomMessages(options, ids), 1);
}
} // namespace

void addGen(CLI::App& app, Action& chosen)
{
    const auto options = std::make_shared<SGenOptions>();
    options->show.received = false;
    CLI::App& command = addCommand(app, chosen, "gen", "Send messages that are made up",
                                   [options](SContext& context) { return gen(context, *options); });
    options->target.addTo(command);
    addNumber(command, "-g,--gap", options->gap, 0, 1e6, "Milliseconds from one message to the next (200)", "MS");
    addText(command, "-I,--id", options->ids, "Identifier, or the least and the greatest (0-7FF)", "IDS");
    addWhole(command, "-L,--length", options->length, 0, CanLog::MAX_DATA_LENGTH, "Data bytes in each message (any)",
             "N");
    addWhole(command, "-n,--count", options->count, 1, INT_MAX, "End after so many messages", "N");
    addWhole(command, "--seed", options->seed, 0, INT_MAX, "The same number makes the same messages (0)");
    addFlag(command, "--sent", options->show.sent, "Show what is sent");
}

} // namespace vexmor::Apps::Cimctl
