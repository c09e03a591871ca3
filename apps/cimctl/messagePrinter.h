#pragma once

#include "apps/cimctl/gatewayRun.h"
#include "apps/cimctl/lineSink.h"
#include "apps/common/messageFilter.h"
#include "cim/canMessage.h"

#include <QObject>
#include <QString>

#include <cstdint>
#include <vector>

namespace vexmor::Apps::Cimctl
{

/// Which messages are shown, and how.
struct SShowOptions {
    bool received = true;
    bool sent = false;
    bool time = false;            ///< each line begins with the time of day
    std::vector<SFilter> filters; ///< a message that one of them lets through is shown; none: all are
    QString logFile;              ///< what is shown is also written here, in candump's log format; empty: nowhere
};

/// Shows the messages of a run: on the output in candump's layout, or as JSON, and in a log file.
class CMessagePrinter : public QObject
{
    Q_OBJECT

public:
    /// Throws a problem when the log file cannot be written. `run` must outlive the printer; it ends when the file
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
    void show(const Cim::CCanMessage& message, bool sending);
    SProblem logProblem() const;

    COutput& m_output;
    const SShowOptions m_options;
    CLineSink m_log;
    bool m_stopped = false;
    std::uint64_t m_shown = 0;
};

} // namespace vexmor::Apps::Cimctl
