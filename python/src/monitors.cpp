#include "monitors.hpp"

#include "call.hpp"

namespace py = pybind11;

namespace ovex::python {

void MonitorForwarder::SetCallback(py::object callback) {
    m_callback.Set(std::move(callback));
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
    static_cast<MonitorForwarder*>(self)->m_callback.Invoke(
        "ovexsdk monitor callback", [args](const py::object& callback) {
            const ovexsdk_mon_info& info = *args->info;
            const py::object value = info.type == 2 ? py::object(py::float_(args->value.f))
                                                    : py::object(py::int_(args->value.i));
            callback(info.id, value, args->flags[0] != 0, args->flags[1] != 0, args->flags[2] != 0,
                     args->timestamp);
        });
}

}  // namespace ovex::python
