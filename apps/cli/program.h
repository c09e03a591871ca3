#pragma once

#include "canlog/problem.h"

#include <QString>

#include <functional>

/// The common part of all programs: `main`, errors and output.
namespace vexmor::Apps
{

/// Runs a program and returns the exit code for `main`. Sets the names that locate the store of interfaces, and opens
/// the descriptors 0 to 2 if they are closed: otherwise a socket could get one of these numbers, and printed output
/// would be sent through this socket. Reports exceptions (no memory) and output that could not be written (disk full)
/// in a line on stderr that begins with `prefix`.
int runProgram(const char* prefix, const std::function<int()>& program);

/// Prints a problem in a line on stderr that begins with `prefix`, and returns its exit code.
int fail(const char* prefix, const SProblem& problem);

/// Returns the text with a question mark in place of each character that is not printable: texts from the network may
/// contain line ends and sequences that control a terminal.
QString printableText(QString text);

/// Writes buffered output of stdout. Returns false if this, or an earlier write, failed.
bool flushOutput();

} // namespace vexmor::Apps
