#pragma once

#include "canlog/problem.h"

namespace vexmor::Apps
{

/// What the exit code of each of the programs means.
enum EExitCode : int {
    eDone = 0,
    eRefused = 1,      ///< the gateway, the plugin or the system refused
    eWrongUsage = 2,   ///< what was typed, or a log, makes no sense
    eInterrupted = 130 ///< Ctrl-C, or another signal that ends a program
};

inline EExitCode exitCodeOf(const SProblem& problem)
{
    return problem.isUsage ? eWrongUsage : eRefused;
}

} // namespace vexmor::Apps
