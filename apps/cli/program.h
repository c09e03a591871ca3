#pragma once

#include "canlog/problem.h"

#include <QString>

#include <functional>

/// What every program does around its work.
namespace vexmor::Apps
{

/// The rest of `main`: names the store of the interfaces, runs a program and returns its exit code. Takes the
/// descriptors 0 to 2 when they are closed, so that no socket gets the number and with it what is printed; reports an
/// exception (no memory, say), and output that the system did not take (disk full), in a line on stderr that begins
/// with `prefix`.
int runProgram(const char* prefix, const std::function<int()>& program);

/// Prints a problem on stderr in a line that begins with `prefix`, and returns the exit code for it.
int fail(const char* prefix, const SProblem& problem);

/// The text with a question mark for each character that does not print: texts from the network may hold line ends and
/// sequences that control a terminal.
QString printableText(QString text);

/// Hands what was printed to the system. False when it was not taken, now or before.
bool flushOutput();

} // namespace vexmor::Apps
