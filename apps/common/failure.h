#pragma once

#include <QString>

namespace vexmor::Apps
{

/// What the program's exit code tells.
enum EExitCode : int {
    eDone = 0,
    eRefused = 1,      ///< the gateway, the plugin or the system refused
    eWrongUsage = 2,   ///< what was typed makes no sense; nothing was done
    eInterrupted = 130 ///< Ctrl-C before everything was sent
};

/// Ends a command before its event loop runs: thrown by whatever cannot go on, printed by main. Never thrown from a
/// slot.
struct SFailure {
    EExitCode exitCode;
    QString text; ///< one line for the user
    int code = 0; ///< result code of the interface; 0: none
};

[[noreturn]] inline void failUsage(const QString& text)
{
    throw SFailure{eWrongUsage, text};
}

[[noreturn]] inline void failRefused(const QString& text, int code = 0)
{
    throw SFailure{eRefused, text, code};
}

} // namespace vexmor::Apps
