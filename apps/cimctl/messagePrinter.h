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

/// Which messages are shown, and how.
struct SShowOptions {
    bool received = false;
    bool sent = false;
    char time = 0;                ///< each line begins with the time: a absolute, d since the line before, z the first
    bool ascii = false;           ///< each line ends with the data as characters
    std::vector<SFilter> filters; ///< a message that one of them lets through is shown; none: all are
    QString logFile;              ///< what is shown is also written here, in candump's log format; empty: nowhere; "-"
                                  ///< to the output instead of what it shows otherwise
    bool append = false;          ///< continue a log that exists
    bool force = false;           ///< replace a log that exists
    bool direction = false;       ///< each line of the log ends with its direction
    QString logFolder;            ///< what is shown is also recorded in files in this folder; empty: nowhere
    bool hourly = false;          ///< a new file of these each hour, not each day
};

/// Shows the messages of a run: on the output in candump's layout, or as JSON, and in a log file, which is opened with
/// the first message: a log that exists stays as it is until then.
class CMessagePrinter : public QObject
{
    Q_OBJECT

public:
    /// Throws a problem when the log file exists and is to be neither continued nor replaced, and when it could not be
    /// written. `run` must outlive the printer; it ends when the file
    /// takes nothing any more.
    CMessagePrinter(CGatewayRun& run, const SShowOptions& options);

    /// Shows nothing from now on.
    void stop() { m_stopped = true; }
    /// The exit code of a run that ended with this one: refused, with a line on stderr, when the log lost something.
    EExitCode finish(EExitCode exitCode);
    std::uint64_t shown() const { return m_shown; }

Q_SIGNALS:
    /// Another message was shown.
    void messageShown();

private:
    /// The messages of a gateway under a name.
    struct SSource {
        QByteArray name;
        std::uint16_t number;                                            ///< of the gateway
        std::map<std::pair<std::uint16_t, bool>, Cim::CCanMessage> last; ///< by identifier and direction
    };

    void log(const QByteArray& line);
    /// Hands what was shown to the recorder.
    void record();
    void show(SSource& source, const Cim::CCanMessage& message, bool sending);
    QByteArray lineOf(SSource& source, const Cim::CCanMessage& message, bool sending, std::int64_t now);
    QByteArray timeText(std::int64_t now);
    SProblem logProblem() const;

    COutput& m_output;
    const SShowOptions m_options;
    const bool m_logsToOutput;
    CLineSink m_log;
    QByteArrayList m_names; ///< of the gateways
    CLogRecorder m_recorder{QStringLiteral("cimctl-")};
    std::vector<SBusRecord> m_toRecord; ///< shown since the recorder got some; `source` is an index of `m_names`
    QTimer m_recordTimer;
    QString m_recordProblem;     ///< why the recorder ended; empty: it has not
    std::int64_t m_timeBase = 0; ///< of the first line, or of the one before; 0: there is none
    bool m_stopped = false;
    std::uint64_t m_shown = 0;
};

} // namespace vexmor::Apps::Cimctl
