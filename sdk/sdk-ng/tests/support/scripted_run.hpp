#pragma once

// The run of a test's data provider, whose items the test delivers. Like the USB providers it
// hands out one null end item per run, at its stop or when its stream ends by itself, and a
// start drops what an earlier run left queued.

#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>
#include <utility>

namespace ovex::sdk::testing {

template <typename Item>
class ScriptedRun {
public:
    std::error_code Start() {
        std::lock_guard lock(m_mutex);
        m_queue.clear();
        m_running = true;
        m_ended = false;
        m_end_queued = false;
        ++starts;
        return {};
    }
    // The stream's error if it ended by itself, else success; a run that never started or has
    // been stopped is refused.
    std::error_code Stop() {
        std::lock_guard lock(m_mutex);
        if (!m_running && !m_ended) {
            return std::make_error_code(std::errc::operation_canceled);
        }
        const std::error_code result = m_ended ? m_stream_error : std::error_code{};
        m_running = false;
        m_ended = false;
        ++stops;
        QueueEnd();
        return result;
    }
    bool IsRunning() {
        std::lock_guard lock(m_mutex);
        return m_running;
    }
    // Blocks until an item is there.
    Item Pop() {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return !m_queue.empty(); });
        Item item = std::move(m_queue.front());
        m_queue.pop_front();
        return item;
    }
    void Clear() {
        std::lock_guard lock(m_mutex);
        m_queue.clear();
    }

    void Deliver(Item item) {
        std::lock_guard lock(m_mutex);
        m_queue.push_back(std::move(item));
        m_changed.notify_all();
    }
    // The board went away: the transfers end with `error` and no stop.
    void EndByItself(std::error_code error) {
        std::lock_guard lock(m_mutex);
        m_running = false;
        m_ended = true;
        m_stream_error = error;
        QueueEnd();
    }

    int starts = 0;
    int stops = 0;

private:
    void QueueEnd() {
        if (!m_end_queued) {
            m_end_queued = true;
            m_queue.push_back(nullptr);
            m_changed.notify_all();
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Item> m_queue;
    bool m_running = false;
    bool m_ended = false;
    bool m_end_queued = false;
    std::error_code m_stream_error;
};

}  // namespace ovex::sdk::testing
