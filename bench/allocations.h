#pragma once

#include <cstddef>
#include <cstdint>

/// Counts what the program takes from the heap: this program's malloc stands in for the C library's, so that Qt and the
/// plugin are counted too.
namespace vexmor::Bench
{

/// Calls of malloc, calloc, realloc, memalign and operator new in this thread since the program started.
std::uint64_t allocations();

/// Bytes that the program holds on the heap now.
std::size_t heapInUse();

} // namespace vexmor::Bench
