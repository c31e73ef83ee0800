#include "monitors.hpp"

#include "call.hpp"

namespace py = pybind11;

namespace ovex::python {

MonitorForwarder::~MonitorForwarder() {
    if (m_callback && Py_IsInitialized() && !_Py_IsFinalizing()) {
        py::gil_scoped_acquire gil;
        Py_CLEAR(m_callback);
    }
}

void MonitorForwarder::SetCallback(py::object callback) {
    PyObject* old = nullptr;
    {
        std::lock_guard lock(m_mutex);
        old = m_callback;
        m_callback = callback.is_none() ? nullptr : callback.release().ptr();
    }
    Py_XDECREF(old);
}

void MonitorForwarder::Attach(ovexsdk_dev_ctx* ctx, bool on) {
    std::uint32_t count = 0;
    Checked("ovexsdk_mon_get_count", [&] { return ovexsdk_mon_get_count(ctx, &count); });
    for (std::uint32_t index = 0; index < count; ++index) {
        Checked("ovexsdk_mon_set_value_changed_cb", [&] {
            return ovexsdk_mon_set_value_changed_cb(ctx, index, on ? &OnValue : nullptr,
                                                    on ? this : nullptr);
        });
    }
}

void MonitorForwarder::OnValue(const ovexsdk_mon_on_value_changed_args* args, void* self) {
    auto& forwarder = *static_cast<MonitorForwarder*>(self);
    {
        std::lock_guard lock(forwarder.m_mutex);
        if (!forwarder.m_callback) {
            return;
        }
    }
    if (!Py_IsInitialized() || _Py_IsFinalizing()) {
        return;
    }
    py::gil_scoped_acquire gil;
    PyObject* callback = nullptr;
    {
        std::lock_guard lock(forwarder.m_mutex);
        callback = forwarder.m_callback;
        Py_XINCREF(callback);
    }
    if (!callback) {
        return;
    }
    try {
        const ovexsdk_mon_info& info = *args->info;
        const py::object value = info.type == 2 ? py::object(py::float_(args->value.f))
                                                : py::object(py::int_(args->value.i));
        py::reinterpret_steal<py::object>(callback)(info.id, value, args->flags[0] != 0,
                                                    args->flags[1] != 0, args->flags[2] != 0,
                                                    args->timestamp);
    } catch (py::error_already_set& error) {
        // Nobody waits on a monitor task: the exception goes where Python reports such ones.
        error.discard_as_unraisable("ovexsdk monitor callback");
    }
}

}  // namespace ovex::python
