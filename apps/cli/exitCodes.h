#pragma once

#include "canlog/problem.h"

namespace vexmor::Apps
{

/// The exit codes of all programs.
enum EExitCode : int {
    eDone = 0,
    eRefused = 1,      ///< The gateway, the plugin or the system refused the operation.
    eWrongUsage = 2,   ///< The command line or a log is wrong.
    eInterrupted = 130 ///< Ctrl-C, or another signal that ends a program.
};

inline EExitCode exitCodeOf(const SProblem& problem)
{
    return problem.isUsage ? eWrongUsage : eRefused;
}

} // namespace vexmor::Apps
