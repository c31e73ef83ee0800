#include "context.hpp"

#include <cstring>

#include "acquisition.hpp"
#include "call.hpp"

namespace py = pybind11;

namespace ovex::python {

Context::Context(const std::string& locator) : m_record(std::make_unique<ovexsdk_dev_ctx>()) {
    std::memset(m_record.get(), 0, sizeof *m_record);
    Checked("ovexsdk_ctx_create",
            [&] { return ovexsdk_ctx_create(m_record.get(), locator.c_str()); });
    m_live = true;
}

Context::~Context() {
    if (!m_live) {
        return;
    }
    // Garbage collection may come here with an acquisition still running: stop it, then let
    // the library end the device and the context.
    StopRunning();
    py::gil_scoped_release no_gil;
    ovexsdk_ctx_release(m_record.get());
}

ovexsdk_dev_ctx* Context::Handle() {
    if (!m_live) {
        throw CallError(OVEXSDK_ERR_INVALID, "ovexsdk context", {},
                        "the board's context was released");
    }
    return m_record.get();
}

void Context::Release() {
    if (!m_live) {
        return;
    }
    StopRunning();
    Checked("ovexsdk_ctx_release", [&] { return ovexsdk_ctx_release(m_record.get()); });
    m_live = false;
    m_monitors.SetCallback(py::none());
}

void Context::Close() {
    StopRunning();
    ovexsdk_dev_ctx* handle = Handle();
    Checked("ovexsdk_dev_close", [&] { return ovexsdk_dev_close(handle); });
}

void Context::SetRunning(Acquisition* acquisition) {
    std::lock_guard lock(m_running_mutex);
    m_running = acquisition;
}

void Context::StopRunning() {
    Acquisition* running = nullptr;
    {
        std::lock_guard lock(m_running_mutex);
        running = m_running;
    }
    if (running) {
        running->Stop();
    }
}

}  // namespace ovex::python
