#pragma once

// Named, stoppable threads that can be joined with a time limit, and the thread and memory
// settings of the platform: name, priority level, CPU affinity, scheduling and memory locking.

#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "ovex/log/log.hpp"

namespace ovex::thread {

// What a thread is given at its start; an empty field leaves the system's choice.
struct ThreadParams {
    std::optional<std::string> name;
    std::optional<std::int8_t> priority;                 // level on the scale -3 to 3
    std::optional<std::vector<std::uint16_t>> affinity;  // indices into the list of CPUs
};

// A thread as the settings below address it: the POSIX handle for its name and the kernel's
// thread id for priority and affinity, which Linux keeps per thread.
struct ThreadHandle {
    pthread_t thread;
    pid_t tid;
};

ThreadHandle CurrentThread() noexcept;

// Level reported by GetPriority when the thread's nice value is not on the scale.
inline constexpr std::uint8_t kPriorityOffScale = 129;

// The kernel keeps at most 15 characters of a thread name; longer names are cut to their first
// 15 characters.
inline constexpr std::size_t kMaxThreadNameLength = 15;

std::error_code SetName(const ThreadHandle& thread, std::string_view name);
std::error_code SetName(std::string_view name);
// Throws std::out_of_range for a level outside -3 to 3.
std::error_code SetPriority(const ThreadHandle& thread, int level);
std::error_code SetPriority(int level);
std::uint8_t GetPriority(const ThreadHandle& thread);
std::uint8_t GetPriority();
// Throws std::out_of_range for an index of 512 or more.
std::error_code SetAffinity(const ThreadHandle& thread, std::span<const std::uint16_t> indices);
std::error_code SetAffinity(std::span<const std::uint16_t> indices);

std::error_code SetRealtimeScheduling(bool enable);
std::error_code RaiseWorkingSet(std::size_t bytes);
std::error_code LockMemory(const void* address, std::size_t bytes);
std::error_code UnlockMemory(const void* address, std::size_t bytes);

// "1023B", "1KiB", "1.5MiB": the largest binary unit that does not exceed the size.
std::string SizeText(std::size_t bytes);

namespace detail {

struct JoinState {
    std::mutex mutex;
    std::condition_variable done_changed;
    bool done = false;
    std::atomic<pid_t> tid{0};
};

void ApplyParams(const ThreadParams& params, const ThreadHandle& thread);

}  // namespace detail

// The owner of one thread. The body gets a stop token as its first argument; a stop request is
// the only way to end it from outside. The body must not let an exception escape.
template <typename T = std::jthread>
class WrappedThread {
public:
    WrappedThread() = default;

    template <typename Body, typename... Args>
    explicit WrappedThread(const ThreadParams& params, Body&& body, Args&&... args)
        : m_state(std::make_shared<detail::JoinState>()) {
        Start(params.name, std::forward<Body>(body), std::forward<Args>(args)...);
        // The thread publishes its kernel id first thing; the settings need it.
        m_state->tid.wait(0, std::memory_order_acquire);
        detail::ApplyParams(params, {m_thread.native_handle(), m_state->tid.load()});
    }

    template <typename Body, typename... Args>
    requires std::is_invocable_v<Body, std::stop_token, Args...>
    explicit WrappedThread(Body&& body, Args&&... args)
        : m_state(std::make_shared<detail::JoinState>()) {
        Start(std::nullopt, std::forward<Body>(body), std::forward<Args>(args)...);
    }

    WrappedThread(WrappedThread&&) noexcept = default;
    WrappedThread& operator=(WrappedThread&& other) noexcept {
        if (this != &other) {
            StopAndJoin();
            m_state = std::move(other.m_state);
            m_thread = std::move(other.m_thread);
        }
        return *this;
    }
    WrappedThread(const WrappedThread&) = delete;
    WrappedThread& operator=(const WrappedThread&) = delete;

    ~WrappedThread() {
        if (m_thread.joinable()) {
            OVEX_LOG_ERROR("BUG: Thread should not be joinable, but it is. Destructor will block.");
            StopAndJoin();
        }
    }

    // True if the thread has ended and been joined (or was never started) within the time.
    bool JoinFor(std::chrono::milliseconds timeout) {
        if (!m_thread.joinable()) {
            return true;
        }
        {
            std::unique_lock lock(m_state->mutex);
            const auto deadline = Deadline(timeout);
            if (!m_state->done_changed.wait_until(lock, deadline, [&] { return m_state->done; })) {
                return false;
            }
        }
        m_thread.join();
        return true;
    }

    void Join() {
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

    bool RequestStop() noexcept { return m_thread.request_stop(); }
    bool Joinable() const noexcept { return m_thread.joinable(); }

    // The thread for the settings functions; its kernel id is 0 until the thread has published
    // it, which a thread started with ThreadParams has done before the constructor returns.
    ThreadHandle Handle() noexcept {
        return {m_thread.native_handle(), m_state ? m_state->tid.load() : 0};
    }

private:
    template <typename Body, typename... Args>
    void Start(std::optional<std::string> log_name, Body&& body, Args&&... args) {
        std::weak_ptr<detail::JoinState> state = m_state;
        try {
            m_thread = T(
                [state, log_name = std::move(log_name), body = std::forward<Body>(body)](
                    std::stop_token token, auto&&... inner) mutable {
                    if (log_name) {
                        log::SetThreadName(*log_name);
                    }
                    if (const auto shared = state.lock()) {
                        shared->tid.store(CurrentThread().tid, std::memory_order_release);
                        shared->tid.notify_all();
                    }
                    std::invoke(body, std::move(token), std::forward<decltype(inner)>(inner)...);
                    if (const auto shared = state.lock()) {
                        std::lock_guard lock(shared->mutex);
                        shared->done = true;
                        shared->done_changed.notify_all();
                    }
                },
                std::forward<Args>(args)...);
        } catch (const std::system_error&) {
            throw std::system_error(
                std::make_error_code(std::errc::resource_unavailable_try_again));
        }
    }

    static std::chrono::steady_clock::time_point Deadline(std::chrono::milliseconds timeout) {
        using Clock = std::chrono::steady_clock;
        const auto now = Clock::now();
        if (timeout.count() <= 0) {
            return now;
        }
        const auto remaining = Clock::time_point::max() - now;
        if (std::chrono::duration_cast<std::chrono::milliseconds>(remaining) <= timeout) {
            return Clock::time_point::max();
        }
        return now + timeout;
    }

    void StopAndJoin() {
        if (m_thread.joinable()) {
            m_thread.request_stop();
            m_thread.join();
        }
    }

    std::shared_ptr<detail::JoinState> m_state;
    T m_thread;
};

}  // namespace ovex::thread
