#include "tests/support/allocation/AllocationCounter.h"

#include <cstdlib>
#include <new>

namespace {
thread_local std::size_t t_allocations = 0;
}

void* operator new(std::size_t size) {
    ++t_allocations;
    if (void* p = std::malloc(size == 0 ? 1 : size))
        return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

namespace Kestrion::TestSupport {
std::size_t allocationsOnThisThread() {
    return t_allocations;
}
} // namespace Kestrion::TestSupport
