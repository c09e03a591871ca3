#pragma once

#include "apps/cimctl/gatewayRun.h"
#include "apps/cimctl/lineSink.h"
#include "apps/host/logRecorder.h"
#include "apps/host/messageFilter.h"
#include "cim/canMessage.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace vexmor::Apps::Cimctl
{

/// The messages that are shown, and their form.
struct SShowOptions {
    bool received = false;
    bool sent = false;
    /// Time at the beginning of each line: 'a' absolute, 'd' since the previous line, 'z' since the first line, 0 none.
    char time = 0;
    bool ascii = false;           ///< Each line ends with the data as characters.
    std::vector<SFilter> filters; ///< Messages that pass one of the filters are shown; without filters, all.
    /// File to which the messages are also written, in candump's log format; empty: none; "-": the log replaces the
    /// ordinary lines of the output.
    QString logFile;
    bool append = false;    ///< An existing log is continued.
    bool force = false;     ///< An existing log is replaced.
    bool direction = false; ///< Each line of the log ends with the direction.
    QString logFolder;      ///< Folder in which the messages are also recorded; empty: none.
    bool hourly = false;    ///< A recording begins a new file each hour, not each day.
};

/// Shows the messages of a run on the output, in candump's layout or as JSON, and in a log file. The log file is opened
/// with the first message; an existing log is unchanged until then.
class CMessagePrinter : public QObject
{
    Q_OBJECT

public:
    /// Throws a problem when the log file cannot be written, and when it exists and is neither to be continued nor
    /// replaced. `run` must outlive the printer; the printer ends it when a line cannot be written to the file.
    CMessagePrinter(CGatewayRun& run, const SShowOptions& options);

    /// Stops showing messages.
    void stop() { m_stopped = true; }
    /// Completes the files. Returns `exitCode`, or eRefused, with an error on stderr, when lines were lost.
    EExitCode finish(EExitCode exitCode);
    std::uint64_t shown() const { return m_shown; }

Q_SIGNALS:
    /// Emitted for each message that was shown.
    void messageShown();

private:
    /// A gateway whose messages are shown.
    struct SSource {
        QByteArray name;
        std::uint16_t number; ///< Index of the name in `m_names`.
        std::map<std::pair<std::uint16_t, bool>, Cim::CCanMessage>
            last; ///< Last message of each identifier and direction.
    };

    void log(const QByteArray& line);
    /// Hands the messages shown since the last call to the recorder.
    void record();
    void show(SSource& source, const Cim::CCanMessage& message, bool sending);
    QByteArray lineOf(SSource& source, const Cim::CCanMessage& message, bool sending, std::int64_t now);
    QByteArray timeText(std::int64_t now);
    SProblem logProblem() const;

    COutput& m_output;
    const SShowOptions m_options;
    const bool m_logsToOutput;
    CLineSink m_log;
    QByteArrayList m_names; ///< Names of the gateways in lines of the log.
    CLogRecorder m_recorder{QStringLiteral("cimctl-")};
    std::vector<SBusRecord> m_toRecord; ///< Messages for the next call of `record`; `source` is an index of `m_names`.
    QTimer m_recordTimer;
    QString m_recordProblem;     ///< Why the recorder has ended; empty while it runs.
    std::int64_t m_timeBase = 0; ///< Time of the previous line (`--time d`) or of the first; 0 before the first line.
    bool m_stopped = false;
    std::uint64_t m_shown = 0;
};

} // namespace vexmor::Apps::Cimctl
