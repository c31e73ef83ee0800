#include "failing_allocator.hpp"

#include <sys/prctl.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

namespace ovex::usb::device::testing {
namespace {

std::atomic<bool> g_armed{false};
std::atomic<std::size_t> g_countdown{0};
std::atomic<bool> g_failed{false};
thread_local bool t_armed_thread = false;

// Reads the kernel's thread name: nothing here may allocate.
bool IsTransportThread() {
    char name[16] = {};
    if (prctl(PR_GET_NAME, name) != 0) {
        return false;
    }
    const std::string_view text(name);
    return text.starts_with("Endpoint ") || text.starts_with("UsbEvents") ||
           text.starts_with("ResultAwait");
}

bool FailsNow() {
    if (!g_armed.load() || !(t_armed_thread || IsTransportThread())) {
        return false;
    }
    if (g_countdown.fetch_sub(1) != 1) {
        return false;
    }
    g_armed.store(false);
    g_failed.store(true);
    return true;
}

void* Allocate(std::size_t size) {
    if (FailsNow()) {
        throw std::bad_alloc();
    }
    if (void* memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}

}  // namespace

void ArmAllocationFailure(std::size_t nth) {
    t_armed_thread = true;
    g_failed.store(false);
    g_countdown.store(nth);
    g_armed.store(true);
}

bool DisarmAllocationFailure() {
    g_armed.store(false);
    return g_failed.load();
}

}  // namespace ovex::usb::device::testing

// The replaced forms all allocate with malloc, so that every delete matches its new.
void* operator new(std::size_t size) {
    return ovex::usb::device::testing::Allocate(size);
}
void* operator new[](std::size_t size) {
    return ovex::usb::device::testing::Allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size == 0 ? 1 : size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size == 0 ? 1 : size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
