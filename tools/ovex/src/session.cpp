#include "session.hpp"

#include <cstdio>

namespace ovex::cli {
namespace {

int ThresholdOf(int verbosity) {
    switch (verbosity) {
        case 0:
            return OVEXSDK_LOG_ERROR;
        case 1:
            return OVEXSDK_LOG_INFO;
        default:
            return OVEXSDK_LOG_DEBUG;
    }
}

// Runs on the context's logger thread; the line ends in a line feed.
void PrintLine(const char* text, ovexsdk_log_severity severity, void* param) {
    const auto& route = *static_cast<const Session::LogRoute*>(param);
    if (route.watcher != nullptr) {
        route.watcher->OnLine(text, severity);
    }
    if (static_cast<int>(severity) <= route.threshold) {
        std::fputs(text, stderr);
    }
}

}  // namespace

Session::Session(const std::string& locator, int verbosity, LogWatcher* watcher)
    : m_locator(locator),
      m_ctx(std::make_unique<ovexsdk_dev_ctx>()),
      m_route{ThresholdOf(verbosity), watcher} {
    const ovexsdk_err_code created = ovexsdk_ctx_create(m_ctx.get(), m_locator.c_str());
    if (created == OVEXSDK_ERR_INVALID) {
        throw UsageError("'" + m_locator + "' is no locator: usb:ix:N, usb:sn:SERIAL, N or SERIAL");
    }
    Check(created, "ovexsdk_ctx_create");
    m_created = true;
    const ovexsdk_log_fmt format = {false, false, true, true};
    Check(ovexsdk_log_set_cb(m_ctx.get(), PrintLine, &format, &m_route), "ovexsdk_log_set_cb");
}

Session::~Session() {
    if (m_opened) {
        ovexsdk_dev_close(m_ctx.get());
    }
    if (m_created) {
        // Delivers the lines still queued before it returns.
        ovexsdk_ctx_release(m_ctx.get());
    }
}

void Session::Open() {
    const ovexsdk_err_code opened = ovexsdk_dev_open(m_ctx.get());
    if (opened == OVEXSDK_ERR_NO_DEVICE) {
        throw CommandError(kExitNoDevice, "no board at " + m_locator);
    }
    Check(opened, "ovexsdk_dev_open(" + m_locator + ")");
    m_opened = true;
}

}  // namespace ovex::cli
