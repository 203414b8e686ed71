#include "tests/prc/tess/allocation_probe.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> watching{false};
std::atomic<std::size_t> largest{0};

void* allocate(std::size_t n) {
    if (watching.load(std::memory_order_relaxed) && n > largest.load(std::memory_order_relaxed)) largest = n;
    if (void* p = std::malloc(n == 0 ? 1 : n)) return p;
    throw std::bad_alloc();
}

}  // namespace

// Every unaligned new and delete goes through malloc and free, so that the
// sanitizers still see matching pairs. The tests are single-threaded.
void* operator new(std::size_t n) { return allocate(n); }
void* operator new[](std::size_t n) { return allocate(n); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept { return std::malloc(n == 0 ? 1 : n); }
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept { return std::malloc(n == 0 ? 1 : n); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }

namespace prc::test {

LargestAllocation::LargestAllocation() {
    largest = 0;
    watching = true;
}
LargestAllocation::~LargestAllocation() { watching = false; }
std::size_t LargestAllocation::bytes() const { return largest.load(); }

}  // namespace prc::test
