// The commands that receive and send messages: dump, send, replay.
#include "apps/cimctl/commands.h"
#include "apps/cimctl/gatewayRun.h"
#include "apps/cimctl/sender.h"
#include "candump/candumpLog.h"

#include <vector>

namespace vexmor::Apps::Cimctl
{
namespace
{
std::vector<Cim::CCanMessage> parseFrames(const QStringList& texts)
{
    std::vector<Cim::CCanMessage> messages;
    for (const QString& text : texts) {
        Cim::CCanMessage message;
        QString error;
        if (!Candump::parseFrame(text.toLocal8Bit(), message, error)) {
            failUsage(error);
        }
        messages.push_back(message);
    }
    return messages;
}

/// Sends everything that a source gives; the run ends with it.
EExitCode sendAll(COutput& output, const STargetOptions& target, const SShowOptions& show, CSender::Source source,
                  double speed)
{
    CGatewayRun run(output, target, eInterrupted);
    CMessagePrinter printer(output, run.session(), show);
    run.open(0);
    CSender sender(output, run.session(), std::move(source), speed);
    QObject::connect(&sender, &CSender::finished, &run,
                     [&run, &sender] { run.end(sender.hasRefused() ? eRefused : eDone); });
    sender.start();
    return run.waitForEnd();
}

/// Reads a whole log once: nothing is to be sent of one that breaks off in the middle.
void checkLog(COutput& output, Candump::CLogReader& log, const QString& file)
{
    Candump::SLogEntry entry;
    QString error;
    std::uint64_t count = 0;
    while (log.next(entry, error)) {
        ++count;
    }
    if (!error.isEmpty() || count == 0) {
        failUsage(error.isEmpty() ? QStringLiteral("%1: holds no frame").arg(file) : error);
    }
    if (log.skipped() > 0) {
        output.warn(QStringLiteral("%1: %2 lines are skipped (empty, 29-bit, remote, error or CAN FD frames)")
                        .arg(file)
                        .arg(log.skipped()));
    }
    log.rewind();
}

/// The entries of a log, one after the other; with `loop` it begins again a moment after its end.
CSender::Source sourceOfLog(Candump::CLogReader& log, bool loop)
{
    constexpr std::int64_t PAUSE_BETWEEN_ROUNDS_US = 1000;
    return [&log, loop, offset = std::int64_t(0), last = std::int64_t(0)](Candump::SLogEntry& entry) mutable {
        QString error;
        if (!log.next(entry, error)) {
            if (!loop || !error.isEmpty() || !log.rewind() || !log.next(entry, error)) {
                return false;
            }
            offset = last + PAUSE_BETWEEN_ROUNDS_US - entry.microseconds;
        }
        entry.microseconds += offset;
        last = entry.microseconds;
        return true;
    };
}
} // namespace

EExitCode dump(COutput& output, const SDumpOptions& options)
{
    const std::vector<Cim::CCanMessage> messages = parseFrames(options.frames);
    SShowOptions show = options.show;
    for (const QString& filter : options.filters) {
        show.filters.push_back(parseFilter(filter));
    }
    CGatewayRun run(output, options.target, eDone);
    CMessagePrinter printer(output, run.session(), show);
    const auto limit = static_cast<std::uint64_t>(options.count);
    QObject::connect(&printer, &CMessagePrinter::messageShown, &run, [&run, &printer, limit] {
        if (printer.shown() == limit) {
            run.end(eDone);
            printer.stop();
        }
    });
    run.open(options.seconds);
    for (const Cim::CCanMessage& message : messages) {
        const int code = run.session().send(message);
        if (code != 0) {
            failRefused(run.session().canInterface().errorCodeToString(code), code);
        }
    }
    return run.waitForEnd();
}

EExitCode send(COutput& output, const SSendOptions& options)
{
    const std::vector<Cim::CCanMessage> messages = parseFrames(options.frames);
    const std::uint64_t count = messages.size() * static_cast<std::uint64_t>(options.repeat);
    const auto source = [&messages, count, &options, index = std::uint64_t(0)](Candump::SLogEntry& entry) mutable {
        if (index == count) {
            return false;
        }
        entry.message = messages[index % messages.size()];
        entry.microseconds = static_cast<std::int64_t>(static_cast<double>(index) * options.interval * 1000);
        ++index;
        return true;
    };
    return sendAll(output, options.target, options.show, source, 1);
}

EExitCode replay(COutput& output, const SReplayOptions& options)
{
    Candump::CLogReader log;
    QString error;
    if (!log.open(options.file, error)) {
        failUsage(error);
    }
    checkLog(output, log, options.file);
    return sendAll(output, options.target, options.show, sourceOfLog(log, options.loop), options.speed);
}

} // namespace vexmor::Apps::Cimctl
