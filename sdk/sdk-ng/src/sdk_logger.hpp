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
struct SharedState;
class LoggerSink;
}  // namespace logger_detail

// Delivers the library's log lines to the host. Every line logged anywhere in the process is
// queued here and handed to the host's callback on the thread "Logger", so a slow callback
// never stalls a USB or acquisition thread until the queue is full. No line is dropped.
class Logger {
public:
    explicit Logger(std::size_t capacity);
    ~Logger();

    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    // Takes effect after the lines already queued, which still reach the previous callback in
    // the previous format. A null function stops the delivery; the thread keeps running.
    void SetCallback(ovexsdk_log_cb function, void* param, ovexsdk_log_fmt format);

private:
    void Unregister();

    std::shared_ptr<logger_detail::SharedState> m_state;
    std::shared_ptr<logger_detail::LoggerSink> m_sink;
    ovex::thread::WrappedThread<> m_thread;
};

}  // namespace ovex::sdk
