#pragma once

#include "apps/cimctl/output.h"
#include "apps/common/messageFilter.h"
#include "cim/canMessage.h"

#include <QObject>
#include <QString>

#include <cstdint>
#include <vector>

namespace vexmor::Apps::Cimctl
{

class CSession;

/// Which messages are shown, and how.
struct SShowOptions {
    bool received = true;
    bool sent = false;
    bool time = false;            ///< each line begins with the time of day
    std::vector<SFilter> filters; ///< a message that one of them lets through is shown; none: all are
    QString logFile;              ///< what is shown is also written here, in candump's log format; empty: nowhere
};

/// Prints the messages of a session: in candump's layout, or as JSON.
class CMessagePrinter : public QObject
{
    Q_OBJECT

public:
    /// Fails when the log file cannot be written. `output` and `session` must outlive the printer.
    CMessagePrinter(COutput& output, CSession& session, const SShowOptions& options);

    /// Shows nothing from now on.
    void stop() { m_stopped = true; }
    std::uint64_t shown() const { return m_shown; }

Q_SIGNALS:
    /// Another message was shown.
    void messageShown();

private:
    void show(const Cim::CCanMessage& message, bool sending);
    bool passes(const Cim::CCanMessage& message) const;

    COutput& m_output;
    const SShowOptions m_options;
    bool m_stopped = false;
    std::uint64_t m_shown = 0;
};

} // namespace vexmor::Apps::Cimctl
