#include "bench/pythonLink.h"

#include <csignal>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace vexmor::Bench
{
namespace
{
constexpr int READ_END = 0;
constexpr int WRITE_END = 1;

[[noreturn]] void becomePython(int tasks, int results, std::uint16_t port, int processor)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(tasks, STDIN_FILENO); // the copies survive exec
    dup2(results, STDOUT_FILENO);
    execl("/usr/bin/python3", "python3", CIM_PYTHON_CAN, std::to_string(port).c_str(),
          std::to_string(processor).c_str(), nullptr);
    _exit(127);
}
} // namespace

CPythonLink::CPythonLink(std::uint16_t port, int processor)
{
    int tasks[2];
    int results[2];
    if (pipe2(tasks, O_CLOEXEC) != 0 || pipe2(results, O_CLOEXEC) != 0 || (m_process = fork()) < 0) {
        throw std::system_error(errno, std::generic_category(), "no process for python-can");
    }
    if (m_process == 0) {
        becomePython(tasks[READ_END], results[WRITE_END], port, processor);
    }
    ::close(tasks[READ_END]);
    ::close(results[WRITE_END]);
    m_tasks = fdopen(tasks[WRITE_END], "w");
    m_results = fdopen(results[READ_END], "r");
}

CPythonLink::~CPythonLink()
{
    std::fclose(m_tasks); // it ends at the end of its input
    std::fclose(m_results);
    waitpid(m_process, nullptr, 0);
}

SCost CPythonLink::receive(int bursts, int frames)
{
    const auto times = ask("receive " + std::to_string(bursts) + ' ' + std::to_string(frames), 2);
    return {times[0], times[1]};
}

SCost CPythonLink::send(int batches, int messages)
{
    const auto times = ask("send " + std::to_string(batches) + ' ' + std::to_string(messages), 2);
    return {times[0], times[1]};
}

std::vector<double> CPythonLink::roundTrips(int count, int messagesBefore)
{
    return ask("roundtrip " + std::to_string(count) + ' ' + std::to_string(messagesBefore),
               static_cast<std::size_t>(count));
}

std::vector<double> CPythonLink::ask(const std::string& task, std::size_t figures)
{
    std::fprintf(m_tasks, "%s\n", task.c_str());
    std::fflush(m_tasks);
    std::vector<double> values(figures);
    for (double& value : values) {
        if (std::fscanf(m_results, "%lf", &value) != 1) {
            throw std::runtime_error("python-can failed (Debian package python3-can)");
        }
    }
    return values;
}

} // namespace vexmor::Bench
