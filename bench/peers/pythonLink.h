#pragma once

#include "bench/measuring.h"
#include "bench/wire.h"

#include <sys/types.h>

#include <cstdio>

namespace vexmor::Bench
{

/// What a script user would take instead: python-can in a Python process of its own (pythonCan.py), connected to a
/// gateway process that speaks socketcand. It measures itself; this asks it to. Throws std::runtime_error when the
/// process fails.
class CPythonLink
{
public:
    CPythonLink(std::uint16_t port, int processor);
    ~CPythonLink();
    CPythonLink(const CPythonLink&) = delete;
    CPythonLink& operator=(const CPythonLink&) = delete;

    SCost receive(int bursts, int frames); ///< of a frame
    SCost send(int batches, int messages); ///< of a message
    /// ns on the wall of each, with so many messages sent before it that are not answered.
    std::vector<double> roundTrips(int count, int messagesBefore);

private:
    std::vector<double> ask(const std::string& task, std::size_t figures);

    pid_t m_process = -1;
    std::FILE* m_tasks = nullptr;
    std::FILE* m_results = nullptr;
};

} // namespace vexmor::Bench
