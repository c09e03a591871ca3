#pragma once

#include <QString>

/// What the programs of a command line have in common.
namespace vexmor::Sim
{

/// Takes the descriptors 0 to 2 when they are closed, so that no socket gets the number and with it what is printed:
/// to print fails instead. The first call of `main`.
void keepStandardDescriptors();

/// Hands what was printed to the system. False when it was not taken (disk full), now or before.
bool flushOutput();

/// An IPv4 address as it is typed, with four decimal numbers; leading zeros mean nothing (QHostAddress would read octal
/// numbers, and short forms like "10.1"). Empty when it is none.
QString plainAddress(const QString& typed);

} // namespace vexmor::Sim
