// Monitor notifications for Python: the library calls from its monitor tasks, several at a
// time; each call takes the GIL and hands the change to the one Python callable of the board.
#pragma once

#include <pybind11/pybind11.h>

#include "ovexsdk.h"
#include "python_callable.hpp"

namespace ovex::python {

class MonitorForwarder {
public:
    // `callback(name, value, warning, error, available, timestamp)`, or None; with the GIL.
    void SetCallback(pybind11::object callback);

    // Registers the forwarding for every monitor of the open device of `ctx`, or removes it.
    void Attach(ovexsdk_dev_ctx* ctx, bool on);

private:
    static void OnValue(const ovexsdk_mon_on_value_changed_args* args, void* self);

    PythonCallable m_callback;
};

}  // namespace ovex::python
