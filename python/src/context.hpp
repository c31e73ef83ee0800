// One context of the library, for one board: the record lives on the heap, so that it never
// moves, and is released once, on the first of Release and the destructor.
#pragma once

#include <pybind11/pybind11.h>

#include <memory>
#include <mutex>
#include <string>

#include "monitors.hpp"
#include "ovexsdk.h"

namespace ovex::python {

class Acquisition;

class Context {
public:
    explicit Context(const std::string& locator);
    ~Context();

    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    // The record for a library call; throws CallError (invalid) once released.
    ovexsdk_dev_ctx* Handle();

    // Closes the device if open and releases the context; the acquisition still running is
    // stopped first. Further calls fail as on a released context.
    void Release();
    // Closes the device (ovexsdk_dev_close) after stopping the acquisition still running.
    void Close();

    MonitorForwarder& Monitors() { return m_monitors; }

    // The acquisition that runs on this context, so that closing stops it first.
    void SetRunning(Acquisition* acquisition);
    void StopRunning();

private:
    std::unique_ptr<ovexsdk_dev_ctx> m_record;
    bool m_live = false;
    MonitorForwarder m_monitors;
    std::mutex m_running_mutex;
    Acquisition* m_running = nullptr;
};

}  // namespace ovex::python
