#pragma once

// The Consumer thread of a frame module's readout. Start, the wait and the module's end touch the
// thread object under one mutex of its own, so that an abort never waits for a join: the
// provider's end item ends the body.

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <thread>

#include "thread_mgmt/thread_mgmt.hpp"

namespace ovex::sdk::acquisition {

class ConsumerThread {
public:
    // Runs `body` on a new thread named "Consumer", once the thread of the last readout is
    // joined. Throws std::system_error if no thread can be made.
    void Start(std::function<void()> body) {
        std::lock_guard lock(m_mutex);
        m_thread.Join();
        m_active.store(true);
        try {
            thread::ThreadParams params;
            params.name = "Consumer";
            m_thread =
                thread::WrappedThread<>(params, [this, body = std::move(body)](std::stop_token) {
                    m_id.store(std::this_thread::get_id());
                    body();
                    m_id.store({});
                    m_active.store(false);
                });
        } catch (...) {
            m_active.store(false);
            throw;
        }
    }

    // The body runs.
    bool Active() const noexcept { return m_active.load(); }
    // The caller is the body's thread: a data callback.
    bool IsCurrent() const noexcept { return m_id.load() == std::this_thread::get_id(); }

    // Waits up to `limit` for the body's end. If it doesn't end in time, `make_it_end` runs and
    // the wait goes on for good; false then.
    bool Await(std::chrono::milliseconds limit, const std::function<void()>& make_it_end) {
        std::lock_guard lock(m_mutex);
        if (m_thread.JoinFor(limit)) {
            return true;
        }
        make_it_end();
        m_thread.Join();
        return false;
    }
    void Join() {
        std::lock_guard lock(m_mutex);
        m_thread.Join();
    }

private:
    std::mutex m_mutex;
    thread::WrappedThread<> m_thread;
    std::atomic<bool> m_active{false};
    std::atomic<std::thread::id> m_id;
};

}  // namespace ovex::sdk::acquisition
