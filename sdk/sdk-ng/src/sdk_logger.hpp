#pragma once

#include <cstddef>
#include <memory>

#include "thread_mgmt/thread_mgmt.hpp"

#include "ovexsdk.h"

namespace ovex::sdk {

// The host's registration: callback, its opaque pointer and the parts of a line it wants.
struct UserLogParams {
    ovexsdk_log_cb function = nullptr;
    void* param = nullptr;
    ovexsdk_log_fmt format{true, true, true, true};
};

namespace logger_detail {
class LogQueue;
class LoggerSink;
}  // namespace logger_detail

// Delivers the library's log lines to the host. Every line logged anywhere in the process is
// queued here and handed to the host's callback on the thread "Logger", so a slow callback
// never stalls a USB or acquisition thread until the queue is full. No line is dropped.
//
// A callback may call the library, and every call logs. So that no circle of waits can form, a
// Logger thread never waits for room in any queue, and while a callback is inside a library
// call (CallbackCall) nobody waits for room in its own logger's queue.
class Logger {
public:
    explicit Logger(std::size_t capacity);
    // Stops the thread if Stop hasn't.
    ~Logger();

    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    // Takes effect after the lines already queued, which still reach the previous callback in
    // the previous format. A null function stops the delivery; the thread keeps running. After
    // Stop it is ignored.
    void SetCallback(ovexsdk_log_cb function, void* param, ovexsdk_log_fmt format);

    // Delivers the lines queued so far and what the callback logs meanwhile, then ends the
    // thread. Not on a Logger thread: it would wait for itself.
    void Stop();

    // True on the thread of any context's logger, the thread of the host's log callbacks.
    static bool OnLoggerThread() noexcept;

    // Spans one library call made by a host's log callback; nothing on other threads.
    class CallbackCall {
    public:
        CallbackCall();
        ~CallbackCall();
        CallbackCall(const CallbackCall&) = delete;
        CallbackCall& operator=(const CallbackCall&) = delete;

    private:
        logger_detail::LogQueue* m_queue;
    };

private:
    void Unregister();

    std::shared_ptr<logger_detail::LogQueue> m_queue;
    std::shared_ptr<logger_detail::LoggerSink> m_sink;
    ovex::thread::WrappedThread<> m_thread;
};

}  // namespace ovex::sdk
