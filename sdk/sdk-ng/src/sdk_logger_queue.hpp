#pragma once

// The queue between the threads that log and one Logger thread, and who waits for room in it.

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "sdk_logger.hpp"

namespace ovex::sdk::logger_detail {

// One queue element; the alternative's index is the element's kind.
// The parts of a line are joined on the logger thread, in the format of the callback that
// receives it: a registration changes both the receiver and the format at the same point.
struct LogLine {
    std::string preamble;
    std::string indentation;
    std::string prefix;
    std::string message;
    int severity;

    std::string Compose(const ovexsdk_log_fmt& format) const;
};
struct Terminate {};
using LoggerMsg = std::variant<LogLine, Terminate, UserLogParams>;

// A producer waits while the queue holds `capacity` elements: that is how a slow callback holds
// back the threads that log. It doesn't wait where the wait could close a circle:
// - on any Logger thread, since that thread may be the one that would make the room;
// - while the consumer's callback is inside a library call, since the call may wait for the
//   very thread that is logging.
// The consumer's own lines (its messages, what its callbacks log) come out before the next
// queued element, in their order. After End only they are taken; the others are logged after the
// release began and are dropped.
class LogQueue {
public:
    explicit LogQueue(std::size_t capacity) : m_capacity(capacity) {}

    // Makes the calling thread this queue's one consumer.
    void BecomeConsumer() noexcept { t_consumer = this; }
    // The queue whose consumer runs on the calling thread, or null.
    static LogQueue* OfThisThread() noexcept { return t_consumer; }

    void Push(LoggerMsg msg) {
        if (t_consumer == this) {
            m_own.push_back(std::move(msg));
            return;
        }
        std::unique_lock lock(m_mutex);
        if (t_consumer == nullptr) {
            m_room.wait(lock, [this] {
                return m_items.size() < m_capacity || m_calls_in_callback > 0 || m_ended;
            });
        }
        if (m_ended) {
            return;
        }
        m_items.push_back(std::move(msg));
        m_filled.notify_one();
    }

    // On the consumer's thread only, like TryPop.
    LoggerMsg Pop() {
        if (auto own = TakeOwn()) {
            return std::move(*own);
        }
        std::unique_lock lock(m_mutex);
        m_filled.wait(lock, [this] { return !m_items.empty(); });
        return TakeFront();
    }

    std::optional<LoggerMsg> TryPop() {
        if (auto own = TakeOwn()) {
            return own;
        }
        std::lock_guard lock(m_mutex);
        if (m_items.empty()) {
            return std::nullopt;
        }
        return TakeFront();
    }

    void End() {
        std::lock_guard lock(m_mutex);
        m_ended = true;
        m_room.notify_all();
    }

    void EnterCall() {
        std::lock_guard lock(m_mutex);
        ++m_calls_in_callback;
        m_room.notify_all();
    }

    void LeaveCall() {
        std::lock_guard lock(m_mutex);
        --m_calls_in_callback;
    }

private:
    std::optional<LoggerMsg> TakeOwn() {
        if (m_own.empty()) {
            return std::nullopt;
        }
        LoggerMsg msg = std::move(m_own.front());
        m_own.pop_front();
        return msg;
    }

    LoggerMsg TakeFront() {
        LoggerMsg msg = std::move(m_items.front());
        m_items.pop_front();
        m_room.notify_one();
        return msg;
    }

    static inline thread_local LogQueue* t_consumer = nullptr;

    const std::size_t m_capacity;
    std::mutex m_mutex;
    std::condition_variable m_room;
    std::condition_variable m_filled;
    std::deque<LoggerMsg> m_items;
    std::deque<LoggerMsg> m_own;  // the consumer's thread only
    int m_calls_in_callback = 0;
    bool m_ended = false;
};

}  // namespace ovex::sdk::logger_detail
