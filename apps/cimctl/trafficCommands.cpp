// The commands that receive and send messages: dump, send, replay, gen.
#include "apps/cimctl/command.h"
#include "apps/cimctl/gatewayRun.h"
#include "apps/cimctl/messagePrinter.h"
#include "apps/cimctl/sender.h"
#include "canlog/candumpLog.h"
#include "cim/resultCodes.h"

#include <climits>
#include <random>
#include <utility>
#include <vector>

namespace vexmor::Apps::Cimctl
{
namespace
{
struct SDumpOptions {
    STargetOptions target;
    SShowOptions show;
    QStringList filters; ///< Filters, in the forms of `readFilter`.
    QStringList frames;  ///< Frames that are sent once when the interface is open.
    int count = 0;       ///< Number of messages to show; 0: no limit.
    double seconds = 0;  ///< Duration after the opening; 0: no limit.
};

struct SSendOptions : SSending {
    QStringList frames;
    int repeat = 1;
    double interval = 0; ///< Milliseconds from one message to the next.
};

struct SReplayOptions : SSending {
    QString file;
    double speed = 1;
    bool loop = false;
};

struct SGenOptions : SSending {
    QString ids = QStringLiteral("0-7FF"); ///< Identifiers, as ID or LOW-HIGH.
    int length = -1;                       ///< Number of data bytes; -1: any.
    int count = 0;                         ///< Number of messages; 0: no limit.
    double gap = 200;                      ///< Milliseconds from one message to the next.
    int seed = 0;
};

std::vector<Cim::CCanMessage> parseFrames(const QStringList& texts)
{
    std::vector<Cim::CCanMessage> messages;
    for (const QString& text : texts) {
        messages.push_back(valueOf(CanLog::parseFrame(text.toLocal8Bit())));
    }
    return messages;
}

/// Returns the text about omitted frames that ends a message about a log: their number by kind; empty if none were
/// omitted.
QString leftOutOf(const CanLog::CLogReader& log)
{
    static const char* const NAMES[] = {"29-bit", "remote", "error", "CAN FD"}; // in the order of EForeign
    QStringList texts;
    for (int kind = 0; kind < CanLog::FOREIGN_COUNT; ++kind) {
        if (const int count = log.skipped(static_cast<CanLog::EForeign>(kind)); count > 0) {
            texts.append(QStringLiteral("%1: %2").arg(QLatin1String(NAMES[kind])).arg(count));
        }
    }
    return texts.isEmpty() ? QString()
                           : QStringLiteral("; frames that a T93 cannot send are left out (%1)")
                                 .arg(texts.join(QLatin1String(", ")));
}

/// Reads the whole log once, so that nothing is sent of a log that is damaged further down. Throws a problem for a
/// damaged log and for a log without frames.
void checkLog(CDiagnostics& diagnostics, CanLog::CLogReader& log, const QString& file)
{
    const std::uint64_t count = valueOf(log.countAll());
    const QString leftOut = leftOutOf(log);
    if (count == 0) {
        failUsage(QStringLiteral("%1: contains no frame to send%2").arg(file, leftOut));
    }
    if (!leftOut.isEmpty()) {
        diagnostics.warn(QStringLiteral("%1: frames to send: %2%3").arg(file).arg(count).arg(leftOut));
    }
}

/// Returns a source that delivers the entries of a log. With `loop`, it starts again shortly after the end.
CSender::Source sourceOfLog(CanLog::CLogReader& log, bool loop)
{
    constexpr std::int64_t PAUSE_BETWEEN_ROUNDS_US = 1000;
    return [&log, loop, offset = std::int64_t(0), last = std::int64_t(0)](CanLog::SLogEntry& entry) mutable {
        auto read = log.next();
        const bool isNewRound = read && !*read && loop && log.rewind();
        auto next = isNewRound ? log.next() : std::move(read);
        if (!next || !*next) {
            return CSender::ENext::eEnd;
        }
        entry = **next;
        if (isNewRound) {
            offset = last + PAUSE_BETWEEN_ROUNDS_US - entry.microseconds;
        }
        entry.microseconds += offset;
        last = entry.microseconds;
        return CSender::ENext::eMessage;
    };
}

/// Sends messages. The first message that is refused ends the run.
void sendAtOnce(CGatewayRun& run, const std::vector<Cim::CCanMessage>& messages)
{
    for (const Cim::CCanMessage& message : messages) {
        const int code = run.gateway().hosted.send(message);
        if (code != Cim::RC_OK) {
            run.output().reportProblem(run.gateway().problemOf(code));
            run.end(eRefused);
            return;
        }
    }
}

/// Runs `dump`: prints messages as they arrive.
EExitCode dump(SContext& context, const SDumpOptions& options)
{
    const std::vector<Cim::CCanMessage> messages = parseFrames(options.frames);
    SShowOptions show = options.show;
    show.received = true;
    if (show.direction && show.logFile.isEmpty() && show.logFolder.isEmpty()) {
        failUsage(QStringLiteral("--direction requires --log or --log-dir"));
    }
    for (const QString& filter : options.filters) {
        show.filters.push_back(valueOf(readFilter(filter)));
    }
    CGatewayRun run(context, options.target);
    CMessagePrinter printer(run, show);
    const auto limit = static_cast<std::uint64_t>(options.count);
    QObject::connect(&printer, &CMessagePrinter::messageShown, &run, [&run, &printer, limit] {
        if (printer.shown() == limit) {
            run.end(eDone);
            printer.stop();
        }
    });
    run.open(options.seconds);
    if (!messages.empty()) {
        run.whenAnswered([&run, &messages] { sendAtOnce(run, messages); });
    }
    return printer.finish(run.waitForEnd());
}

/// Runs `send`. Nothing is sent when one of the frames is invalid. From the standard input, the frames before an
/// invalid one are sent.
EExitCode send(SContext& context, const SSendOptions& options)
{
    if (options.frames == QStringList{QStringLiteral("-")}) {
        if (options.repeat > 1) {
            failUsage(QStringLiteral("the standard input cannot be repeated: omit --repeat"));
        }
        return sendInput(context, options, options.interval);
    }
    const std::vector<Cim::CCanMessage> messages = parseFrames(options.frames);
    const std::uint64_t count = messages.size() * static_cast<std::uint64_t>(options.repeat);
    const auto source = [&messages, count, &options, index = std::uint64_t(0)](CanLog::SLogEntry& entry) mutable {
        if (index == count) {
            return CSender::ENext::eEnd;
        }
        entry.message = messages[index % messages.size()];
        entry.microseconds = static_cast<std::int64_t>(static_cast<double>(index) * options.interval * 1000);
        ++index;
        return CSender::ENext::eMessage;
    };
    return sendAll(context, options, source, 1);
}

/// Runs `replay`: sends a log with its own timing. Nothing is sent when one of its lines is invalid.
EExitCode replay(SContext& context, const SReplayOptions& options)
{
    CanLog::CLogReader log;
    require(log.open(options.file));
    checkLog(context.diagnostics, log, options.file);
    return sendAll(context, options, sourceOfLog(log, options.loop), options.speed);
}

/// Returns a source of messages with random content, which is the same for the same seed.
CSender::Source randomMessages(const SGenOptions& options, const SFilter& ids)
{
    return [options, ids, random = std::mt19937(static_cast<unsigned int>(options.seed)),
            index = std::int64_t(0)](CanLog::SLogEntry& entry) mutable {
        if (options.count > 0 && index == options.count) {
            return CSender::ENext::eEnd;
        }
        const auto any = [&random](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
        unsigned char data[CanLog::MAX_DATA_LENGTH];
        for (unsigned char& byte : data) {
            byte = static_cast<unsigned char>(any(0, UCHAR_MAX));
        }
        const int length = options.length < 0 ? any(0, CanLog::MAX_DATA_LENGTH) : options.length;
        const auto id = static_cast<std::uint16_t>(any(ids.low, ids.high));
        entry.message = Cim::CCanMessage(Cim::CCanId::fromValue(id), static_cast<unsigned char>(length), data);
        entry.microseconds = static_cast<std::int64_t>(static_cast<double>(index) * options.gap * 1000);
        ++index;
        return CSender::ENext::eMessage;
    };
}

/// Runs `gen`: sends random messages.
EExitCode gen(SContext& context, const SGenOptions& options)
{
    auto ids = readFilter(options.ids);
    if (!ids || ids->inverse || ids->mask != SFilter().mask) {
        failUsage(QStringLiteral("identifiers %1: must be ID or LOW-HIGH, hexadecimal, at most 7FF").arg(options.ids));
    }
    return sendAll(context, options, randomMessages(options, *ids), 1);
}

void addDump(CLI::App& app, Action& chosen)
{
    const auto [command, options] = addCommand(app, chosen, "dump", "Print messages as they arrive", dump);
    options.target.addTo(command, STargetOptions::ENumber::eSeveral);
    addWhole(command, "-n,--count", options.count, 1, INT_MAX, "End after this many messages", "N");
    addNumber(command, "-s,--seconds", options.seconds, 0.001, 1e6, "End this many seconds after the interface is open",
              "S");
    addFlag(command, "--sent", options.show.sent, "Show sent messages too, and the direction of each");
    const auto takeTime = [&show = options.show](const QString& text) { show.time = text.at(0).toLatin1(); };
    addText(command, "-t,--time", takeTime,
            "Begin each line with the time: a absolute, d since the previous line, z since the first", "a|d|z")
        .oneOf({"a", "d", "z"});
    addFlag(command, "-a,--ascii", options.show.ascii, "End each line with the data as characters");
    const COption log =
        addText(command, "-l,--log", options.show.logFile,
                "Write the messages also to a new file, in candump's log format; -: only the log, to stdout", "FILE");
    addFlag(command, "--append", options.show.append, "Continue an existing log").needs(log);
    addFlag(command, "--force", options.show.force, "Replace an existing log when the first message arrives")
        .needs(log);
    addFlag(command, "--direction", options.show.direction,
            "End each line of the log with R (received) or T (sent); Wireshark cannot read such a log");
    const COption folder =
        addText(command, "--log-dir", options.show.logFolder,
                "Write the messages to files in this folder, named by date and time: a new file each day and after 64 "
                "MB; ends before the disk is full",
                "DIR")
            .excludes({log});
    addFlag(command, "--hourly", options.show.hourly, "Begin a new file each hour").needs(folder);
    addTexts(command, "-f,--filter", options.filters,
             "Show only these identifiers: ID, ID:MASK or LOW-HIGH; ID~MASK: all but these", "FILTER");
    addTexts(command, "--send", options.frames, "Send this frame when the (first) interface is open", "ID#DATA");
    addExamples(command, {"cimctl dump hall --filter 200-2FF --log hall.log",
                          "cimctl dump hall stage --time a --log-dir records --hourly"});
}

void addSend(CLI::App& app, Action& chosen)
{
    const auto [command, options] = addCommand(app, chosen, "send", "Send messages", send);
    options.target.addTo(command);
    addTexts(command, "FRAMES", options.frames,
             "Frames: ID#DATA, hexadecimal, like 123#1122AABB; -: from the standard input, one per line", "ID#DATA")
        .several()
        .required();
    addWhole(command, "--repeat", options.repeat, 1, INT_MAX, "Repeat the list this many times", "N");
    addNumber(command, "--interval", options.interval, 0, 1e6,
              "Milliseconds from one message to the next (0: as fast as the gateway accepts them)", "MS");
    addFlag(command, "--sent", options.show.sent, "Also print the sent messages");
    addExamples(command,
                {"cimctl send hall 123#1122AABB", "cimctl send hall 100#01 101#02 --repeat 10 --interval 100"});
}

void addReplay(CLI::App& app, Action& chosen)
{
    const auto [command, options] = addCommand(app, chosen, "replay", "Send a candump log with its own timing", replay);
    options.target.addTo(command);
    addText(command, "FILE", options.file, "The log: lines like (1398128223.803317) can0 166#D0320009").required();
    addNumber(command, "--speed", options.speed, 0.001, 1e6, "Speed factor", "N");
    addFlag(command, "--loop", options.loop, "Start again at the end, until Ctrl-C");
    addFlag(command, "--sent", options.show.sent, "Also print the sent messages");
    addExamples(command, {"cimctl replay hall hall.log", "cimctl replay hall hall.log --speed 2 --loop"});
}

void addGen(CLI::App& app, Action& chosen)
{
    const auto [command, options] = addCommand(app, chosen, "gen", "Send random messages", gen);
    options.target.addTo(command);
    addNumber(command, "-g,--gap", options.gap, 0, 1e6, "Milliseconds from one message to the next (200)", "MS");
    addText(command, "-I,--id", options.ids, "Identifier, or lowest and highest identifier (0-7FF)", "IDS");
    addWhole(command, "-L,--length", options.length, 0, CanLog::MAX_DATA_LENGTH, "Data bytes in each message (any)",
             "N");
    addWhole(command, "-n,--count", options.count, 1, INT_MAX, "End after this many messages", "N");
    addWhole(command, "--seed", options.seed, 0, INT_MAX,
             "Seed of the random messages: equal seeds send equal messages (0)");
    addFlag(command, "--sent", options.show.sent, "Also print the sent messages");
    addExamples(command, {"cimctl gen hall --gap 10 --count 1000", "cimctl gen hall --id 100-1FF --length 8 --seed 7"});
}

} // namespace

void addTrafficCommands(CLI::App& app, Action& chosen)
{
    addDump(app, chosen);
    addSend(app, chosen);
    addReplay(app, chosen);
    addGen(app, chosen);
}

} // namespace vexmor::Apps::Cimctl
