// Monitor notifications for Python: the library calls from its monitor tasks, several at a
// time; each call takes the GIL and hands the change to the one Python callable of the board.
#pragma once

#include <pybind11/pybind11.h>

#include <mutex>

#include "ovexsdk.h"

namespace ovex::python {

class MonitorForwarder {
public:
    MonitorForwarder() = default;
    ~MonitorForwarder();
    MonitorForwarder(const MonitorForwarder&) = delete;
    MonitorForwarder& operator=(const MonitorForwarder&) = delete;

    // `callback(name, value, warning, error, available, timestamp)`, or None; with the GIL.
    void SetCallback(pybind11::object callback);

    // Registers the forwarding for every monitor of the open device of `ctx`, or removes it.
    void Attach(ovexsdk_dev_ctx* ctx, bool on);

private:
    static void OnValue(const ovexsdk_mon_on_value_changed_args* args, void* self);

    std::mutex m_mutex;
    PyObject* m_callback = nullptr;  // owned reference; changed with the GIL
};

}  // namespace ovex::python
