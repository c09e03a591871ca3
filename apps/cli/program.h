#pragma once

#include <functional>

/// What every program does around its work.
namespace vexmor::Apps
{

/// The rest of `main`: runs a program and gives its exit code. Takes the descriptors 0 to 2 when they are closed, so
/// that no socket gets the number and with it what is printed; tells of an exception (no memory, say), and of output
/// that the system did not take (disk full), in a line on stderr that begins with `prefix`.
int runProgram(const char* prefix, const std::function<int()>& program);

/// Hands what was printed to the system. False when it was not taken, now or before.
bool flushOutput();

} // namespace vexmor::Apps
