#include "thread_mgmt/thread_mgmt.hpp"

#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>

#include <fmt/format.h>

#include "thread_mgmt/utils.hpp"

namespace ovex::thread {
namespace {

// Values of the priority scale, index = level + 3. A thread's nice value is the negated value:
// the top level asks for nice -15, the bottom one for nice 15.
constexpr std::array<int, 7> kPriorityScale = {-15, -2, -1, 0, 1, 2, 15};

// The list of CPUs that affinity indices address holds at most this many entries.
constexpr std::size_t kMaxCpuSets = 512;

std::error_code LastSystemError(int error) {
    return {error, std::system_category()};
}

unsigned long AsUnsigned(pid_t value) {
    return static_cast<unsigned long>(value);
}

// The CPUs this process may run on, in ascending order: the list affinity indices refer to.
std::error_code ProcessCpus(std::vector<std::uint32_t>& cpus) {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (::sched_getaffinity(::getpid(), sizeof(set), &set) != 0) {
        const int error = errno;
        LogSystemError("Failed to retrieve CPU sets information");
        return LastSystemError(error);
    }
    cpus.clear();
    for (int cpu = 0; cpu < CPU_SETSIZE && cpus.size() < kMaxCpuSets; ++cpu) {
        if (CPU_ISSET(cpu, &set)) {
            cpus.push_back(static_cast<std::uint32_t>(cpu));
        }
    }
    return {};
}

}  // namespace

ThreadHandle CurrentThread() noexcept {
    return {::pthread_self(), static_cast<pid_t>(::syscall(SYS_gettid))};
}

std::error_code SetName(const ThreadHandle& thread, std::string_view name) {
    const std::string cut(name.substr(0, kMaxThreadNameLength));
    const int error = ::pthread_setname_np(thread.thread, cut.c_str());
    if (error != 0) {
        OVEX_LOG_ERROR("Failed to set thread name: 0x%08lX.", static_cast<unsigned long>(error));
        return std::make_error_code(std::errc::invalid_argument);
    }
    OVEX_LOG_DEBUG("Thread %lu name changed to '%s'.", AsUnsigned(thread.tid), cut.c_str());
    return {};
}

std::error_code SetName(std::string_view name) {
    log::SetThreadName(name);
    return SetName(CurrentThread(), name);
}

std::error_code SetPriority(const ThreadHandle& thread, int level) {
    if (level < -3 || level > 3) {
        throw std::out_of_range("invalid array<T, N> subscript");
    }
    const int value = kPriorityScale[static_cast<std::size_t>(level + 3)];
    if (value < -15 || value > 15) {
        OVEX_LOG_ERROR("Invalid thread priority: %d.", value);
        return std::make_error_code(std::errc::invalid_argument);
    }
    if (::setpriority(PRIO_PROCESS, static_cast<id_t>(thread.tid), -value) != 0) {
        const int error = errno;
        LogSystemError("Failed to set thread priority");
        return LastSystemError(error);
    }
    OVEX_LOG_DEBUG("Priority of thread %lu changed to %d.", AsUnsigned(thread.tid), value);
    return {};
}

std::error_code SetPriority(int level) {
    return SetPriority(CurrentThread(), level);
}

std::uint8_t GetPriority(const ThreadHandle& thread) {
    errno = 0;
    const int nice = ::getpriority(PRIO_PROCESS, static_cast<id_t>(thread.tid));
    if (nice == -1 && errno != 0) {
        LogSystemError("Failed to get thread priority");
        return kPriorityOffScale;
    }
    for (std::size_t index = 0; index < kPriorityScale.size(); ++index) {
        if (kPriorityScale[index] == -nice) {
            return static_cast<std::uint8_t>(static_cast<int>(index) - 3);
        }
    }
    return kPriorityOffScale;
}

std::uint8_t GetPriority() {
    return GetPriority(CurrentThread());
}

std::error_code SetAffinity(const ThreadHandle& thread, std::span<const std::uint16_t> indices) {
    std::vector<std::uint32_t> cpus;
    if (const auto error = ProcessCpus(cpus)) {
        return error;
    }
    if (indices.size() > cpus.size()) {
        OVEX_LOG_ERROR("Invalid number of CPU sets: %zu > %zu", indices.size(), cpus.size());
        return std::make_error_code(std::errc::invalid_argument);
    }
    cpu_set_t set;
    CPU_ZERO(&set);
    std::string text;
    for (const std::uint16_t index : indices) {
        if (index >= kMaxCpuSets) {
            throw std::out_of_range("invalid array<T, N> subscript");
        }
        if (index >= cpus.size()) {
            OVEX_LOG_ERROR("Invalid CPU set index: %u.", static_cast<unsigned>(index));
            return std::make_error_code(std::errc::invalid_argument);
        }
        CPU_SET(cpus[index], &set);
        text += fmt::format("{}[{:#x}]", text.empty() ? "" : ", ", cpus[index]);
    }
    if (::sched_setaffinity(thread.tid, sizeof(set), &set) != 0) {
        const int error = errno;
        LogSystemError("Failed to set thread affinity");
        return LastSystemError(error);
    }
    OVEX_LOG_DEBUG("Selected CPU set for TID %lu is %s.", AsUnsigned(thread.tid), text.c_str());
    return {};
}

std::error_code SetAffinity(std::span<const std::uint16_t> indices) {
    return SetAffinity(CurrentThread(), indices);
}

// The process's "high" class is nice -10 on its main thread, which threads started later
// inherit; "normal" is nice 0.
std::error_code SetRealtimeScheduling(bool enable) {
    const pid_t pid = ::getpid();
    if (::setpriority(PRIO_PROCESS, static_cast<id_t>(pid), enable ? -10 : 0) != 0) {
        const int error = errno;
        const std::string prefix = fmt::format("Failed to {} realtime scheduling for PID {}",
                                               enable ? "enable" : "disable", pid);
        LogSystemError(prefix.c_str());
        return LastSystemError(error);
    }
    OVEX_LOG_DEBUG("Process PID %lu switched to %s scheduling.", AsUnsigned(pid),
                   enable ? "realtime" : "normal");
    return {};
}

// The locked-memory limit plays the working set minimum: the soft limit grows by the bytes, and
// the hard limit only as far as the soft one needs.
std::error_code RaiseWorkingSet(std::size_t bytes) {
    const pid_t pid = ::getpid();
    rlimit limit{};
    if (::getrlimit(RLIMIT_MEMLOCK, &limit) != 0) {
        const int error = errno;
        LogSystemError(
            fmt::format("Failed to get current working set size for PID {}", pid).c_str());
        return LastSystemError(error);
    }
    if (limit.rlim_cur != RLIM_INFINITY) {
        limit.rlim_cur =
            limit.rlim_cur > RLIM_INFINITY - bytes ? RLIM_INFINITY : limit.rlim_cur + bytes;
    }
    if (limit.rlim_max != RLIM_INFINITY && limit.rlim_max < limit.rlim_cur) {
        limit.rlim_max = limit.rlim_cur;
    }
    if (::setrlimit(RLIMIT_MEMLOCK, &limit) != 0) {
        const int error = errno;
        LogSystemError(
            fmt::format("Failed to configure the working set limits of process PID {}", pid)
                .c_str());
        return LastSystemError(error);
    }
    OVEX_LOG_DEBUG("Working set limits of process PID %lu raised to: min=%zu, max=%zu.",
                   AsUnsigned(pid), static_cast<std::size_t>(limit.rlim_cur),
                   static_cast<std::size_t>(limit.rlim_max));
    return {};
}

std::error_code LockMemory(const void* address, std::size_t bytes) {
    const std::string size = SizeText(bytes);
    int result = ::mlock(address, bytes);
    // ENOMEM is the locked-memory limit (or an unmapped range, which the retry reports again).
    if (result != 0 && errno == ENOMEM && !RaiseWorkingSet(bytes)) {
        result = ::mlock(address, bytes);
    }
    if (result != 0) {
        const int error = errno;
        LogSystemError(
            fmt::format("Failed to lock {} bytes ({}) at {}", bytes, size, address).c_str());
        return LastSystemError(error);
    }
    OVEX_LOG_DEBUG("Locked %zu bytes (%s) at 0x%p.", bytes, size.c_str(), address);
    return {};
}

// munlock of pages that are not locked succeeds on Linux, so a block that was never locked
// unlocks without complaint.
std::error_code UnlockMemory(const void* address, std::size_t bytes) {
    const std::string size = SizeText(bytes);
    if (::munlock(address, bytes) != 0) {
        const int error = errno;
        LogSystemError(
            fmt::format("Failed to unlock {} bytes ({}) at {}", bytes, size, address).c_str());
        return LastSystemError(error);
    }
    OVEX_LOG_DEBUG("Unlocked %zu bytes (%s) at 0x%p.", bytes, size.c_str(), address);
    return {};
}

std::string SizeText(std::size_t bytes) {
    static constexpr std::array<const char*, 5> kUnits = {"B", "KiB", "MiB", "GiB", "TiB"};
    std::size_t unit = 0;
    double divisor = 1.0;
    while (unit + 1 < kUnits.size() && static_cast<double>(bytes) >= divisor * 1024.0) {
        divisor *= 1024.0;
        ++unit;
    }
    return fmt::format("{:g}{}", static_cast<double>(bytes) / divisor, kUnits[unit]);
}

namespace detail {

void ApplyParams(const ThreadParams& params, const ThreadHandle& thread) {
    if (params.name) {
        (void)SetName(thread, *params.name);
    }
    if (params.priority) {
        (void)SetPriority(thread, *params.priority);
    }
    if (params.affinity) {
        (void)SetAffinity(thread, *params.affinity);
    }
}

}  // namespace detail
}  // namespace ovex::thread
