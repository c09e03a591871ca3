#include "bench/allocations.h"

#include <malloc.h>

namespace
{
thread_local std::uint64_t s_allocations = 0;
}

// The C library's own functions behind the replaced ones. Those that are not replaced (free) take what these give.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

#define CIM_REPLACED __attribute__((visibility("default")))

CIM_REPLACED void* malloc(std::size_t size) noexcept
{
    ++s_allocations;
    return __libc_malloc(size);
}

CIM_REPLACED void* calloc(std::size_t count, std::size_t size) noexcept
{
    ++s_allocations;
    return __libc_calloc(count, size);
}

CIM_REPLACED void* realloc(void* block, std::size_t size) noexcept
{
    ++s_allocations;
    return __libc_realloc(block, size);
}

CIM_REPLACED void* memalign(std::size_t alignment, std::size_t size) noexcept
{
    ++s_allocations;
    return __libc_memalign(alignment, size);
}

CIM_REPLACED void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept
{
    ++s_allocations;
    return __libc_memalign(alignment, size);
}
}

namespace vexmor::Bench
{

std::uint64_t allocations()
{
    return s_allocations;
}

std::size_t heapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

} // namespace vexmor::Bench
