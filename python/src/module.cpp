// The extension ovexsdk._core: the exported C interface as Python callables, one per library
// call with the GIL released and failures raised, plus the acquisition. The package's Python
// modules build the public API on it.

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "acquisition.hpp"
#include "call.hpp"
#include "context.hpp"
#include "log_bridge.hpp"
#include "ovexsdk.h"

namespace py = pybind11;
using namespace ovex::python;

namespace {

using ContextPtr = std::shared_ptr<Context>;

// Enough for every board a locator can name ("usb:ix:0" to "usb:ix:99").
constexpr std::uint64_t kMostBoards = 100;
// A script's reply normally follows at once; this long means the logger is stuck.
constexpr std::chrono::seconds kReplyWait{10};

py::tuple IdentityOf(const ovexsdk_enum_info& info) {
    return py::make_tuple(info.serial_number, info.product, info.connection_string,
                          info.instance_path);
}

py::list ListBoards() {
    std::vector<ovexsdk_enum_info> infos(kMostBoards);
    std::uint64_t count = infos.size();
    Checked("ovexsdk_enum_get_info", [&] { return ovexsdk_enum_get_info(infos.data(), &count); });
    py::list boards;
    for (std::uint64_t i = 0; i < count; ++i) {
        boards.append(IdentityOf(infos[i]));
    }
    return boards;
}

template <typename T, typename Getter>
T Get(const char* function, Getter getter) {
    T value{};
    Checked(function, [&] { return getter(&value); });
    return value;
}

py::dict ChipInfoOf(const ovexsdk_chip_info& info) {
    py::list modes;
    for (const ovexsdk_chip_mode mode : info.modes) {
        if (mode != Unknown) {
            modes.append(static_cast<int>(mode));
        }
    }
    py::list polarities;
    for (const ovexsdk_chip_polarity polarity : info.polarities) {
        if (polarity != 0) {
            polarities.append(static_cast<int>(polarity));
        }
    }
    py::dict out;
    out["id"] = std::string(info.chip_id, strnlen(info.chip_id, sizeof info.chip_id));
    out["modes"] = modes;
    out["polarities"] = polarities;
    out["width"] = info.width;
    out["height"] = info.height;
    return out;
}

py::object MonitorValue(std::uint32_t type, ovexsdk_mon_value value) {
    return type == 2 ? py::object(py::float_(value.f)) : py::object(py::int_(value.i));
}

// Runs `script` with `reply(text)` defined for it and answers what it replied.
std::string ScriptReply(Context& context, const std::string& script) {
    LogBridge& bridge = LogBridge::Instance();
    const std::string token = bridge.NewReplyToken();
    const std::string text = "local function reply(text) Log.info('" +
                             std::string(LogBridge::kReplyMark) + token + " ' .. text) end\n" +
                             script;
    ovexsdk_dev_ctx* handle = context.Handle();
    Checked("ovexsdk_script_execute", [&] { return ovexsdk_script_execute(handle, text.c_str()); });
    std::optional<std::string> reply;
    {
        py::gil_scoped_release no_gil;
        reply = bridge.AwaitReply(token, kReplyWait);
    }
    if (!reply) {
        throw CallError(OVEXSDK_ERR_FAILED, "ovexsdk_script_execute", {},
                        "the script's reply did not come", true);
    }
    return *reply;
}

py::class_<Context, ContextPtr> BindContext(py::module_& m) {
    py::class_<Context, ContextPtr> context(m, "Context");
    context.def(py::init<const std::string&>(), py::arg("locator"))
        .def("release", &Context::Release)
        .def("open",
             [](Context& c) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 Checked("ovexsdk_dev_open", [&] { return ovexsdk_dev_open(h); });
             })
        .def("close", &Context::Close)
        .def("is_open",
             [](Context& c) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 return Get<bool>("ovexsdk_dev_is_open",
                                  [&](bool* v) { return ovexsdk_dev_is_open(h, v); });
             })
        .def("info",
             [](Context& c) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 return IdentityOf(Get<ovexsdk_enum_info>(
                     "ovexsdk_dev_get_info",
                     [&](ovexsdk_enum_info* v) { return ovexsdk_dev_get_info(h, v); }));
             })
        .def("units",
             [](Context& c) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 const auto count = Get<std::uint8_t>(
                     "ovexsdk_dev_get_unit_count",
                     [&](std::uint8_t* v) { return ovexsdk_dev_get_unit_count(h, v); });
                 std::vector<ovexsdk_dev_unit_info> infos(count);
                 std::uint8_t filled = count;
                 if (count != 0) {
                     Checked("ovexsdk_dev_get_unit_info",
                             [&] { return ovexsdk_dev_get_unit_info(h, infos.data(), &filled); });
                 }
                 py::list units;
                 for (std::uint8_t i = 0; i < filled; ++i) {
                     const std::uint8_t unit = infos[i].index;
                     const bool powered = Get<bool>("ovexsdk_dev_is_unit_powered", [&](bool* v) {
                         return ovexsdk_dev_is_unit_powered(h, unit, v);
                     });
                     units.append(py::make_tuple(unit, infos[i].name, powered));
                 }
                 return units;
             })
        .def("is_powered",
             [](Context& c) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 return Get<bool>("ovexsdk_dev_is_powered",
                                  [&](bool* v) { return ovexsdk_dev_is_powered(h, v); });
             })
        .def("power_up",
             [](Context& c) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 Checked("ovexsdk_dev_power_up", [&] { return ovexsdk_dev_power_up(h); });
             })
        .def("power_down",
             [](Context& c) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 Checked("ovexsdk_dev_power_down", [&] { return ovexsdk_dev_power_down(h); });
             })
        .def("power_up_unit",
             [](Context& c, std::uint8_t unit) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 Checked("ovexsdk_dev_power_up_unit",
                         [&] { return ovexsdk_dev_power_up_unit(h, unit); });
             })
        .def("power_down_unit",
             [](Context& c, std::uint8_t unit) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 Checked("ovexsdk_dev_power_down_unit",
                         [&] { return ovexsdk_dev_power_down_unit(h, unit); });
             })
        .def("script",
             [](Context& c, const std::string& text) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 Checked("ovexsdk_script_execute",
                         [&] { return ovexsdk_script_execute(h, text.c_str()); });
             })
        .def("script_reply", &ScriptReply)
        .def("script_stop", [](Context& c) {
            ovexsdk_dev_ctx* h = c.Handle();
            Checked("ovexsdk_script_stop", [&] { return ovexsdk_script_stop(h); });
        });
    return context;
}

void BindChips(py::class_<Context, ContextPtr>& context) {
    context
        .def("chips",
             [](Context& c) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 const auto count = Get<std::uint8_t>(
                     "ovexsdk_chip_get_count",
                     [&](std::uint8_t* v) { return ovexsdk_chip_get_count(h, v); });
                 std::vector<ovexsdk_chip_info> infos(count);
                 std::vector<ovexsdk_chip_settings> settings(count);
                 std::vector<ovexsdk_chip_thld_info> ranges(count);
                 std::uint8_t filled = count;
                 if (count != 0) {
                     Checked("ovexsdk_chip_get_info",
                             [&] { return ovexsdk_chip_get_info(h, infos.data(), &filled); });
                     Checked("ovexsdk_chip_get_settings", [&] {
                         return ovexsdk_chip_get_settings(h, settings.data(), &filled);
                     });
                 }
                 py::list chips;
                 for (std::uint8_t chip = 0; chip < filled; ++chip) {
                     py::dict info = ChipInfoOf(infos[chip]);
                     info["polarity"] = static_cast<int>(settings[chip].polarity);
                     info["mode"] = static_cast<int>(settings[chip].mode);
                     chips.append(info);
                 }
                 return chips;
             })
        .def("threshold_range",
             [](Context& c, std::uint8_t chip) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 std::vector<ovexsdk_chip_thld_info> ranges(static_cast<std::size_t>(chip) + 1);
                 auto filled = static_cast<std::uint8_t>(ranges.size());
                 Checked("ovexsdk_chip_get_thld_info",
                         [&] { return ovexsdk_chip_get_thld_info(h, ranges.data(), &filled); });
                 if (filled <= chip) {
                     throw CallError(OVEXSDK_ERR_INVALID, "ovexsdk_chip_get_thld_info", {},
                                     "no chip " + std::to_string(chip));
                 }
                 const ovexsdk_chip_thld_info& r = ranges[chip];
                 return py::make_tuple(r.energy_low, r.energy_high, r.raw_min, r.raw_max,
                                       r.calibrated != 0);
             })
        .def("configure",
             [](Context& c, std::uint8_t chip) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 Checked("ovexsdk_chip_configure", [&] { return ovexsdk_chip_configure(h, chip); });
             })
        .def("configure_from_string",
             [](Context& c, std::uint8_t chip, const std::string& text) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 Checked("ovexsdk_chip_configure_from_string",
                         [&] { return ovexsdk_chip_configure_from_string(h, chip, text.c_str()); });
             })
        .def("set_mode",
             [](Context& c, int mode) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 Checked("ovexsdk_chip_set_mode", [&] {
                     return ovexsdk_chip_set_mode(h, static_cast<ovexsdk_chip_mode>(mode));
                 });
             })
        .def("set_polarity",
             [](Context& c, std::uint8_t chip, int polarity) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 Checked("ovexsdk_chip_set_polarity", [&] {
                     return ovexsdk_chip_set_polarity(h, chip,
                                                      static_cast<ovexsdk_chip_polarity>(polarity));
                 });
             })
        .def("get_mask",
             [](Context& c, std::uint8_t chip, std::size_t height, std::size_t width) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 py::array_t<std::uint8_t> mask({height, width});
                 std::memset(mask.mutable_data(), 0, height * width);
                 ovexsdk_chip_pixel_mask record{mask.mutable_data(), height * width};
                 Checked("ovexsdk_chip_get_pixel_mask",
                         [&] { return ovexsdk_chip_get_pixel_mask(h, chip, &record); });
                 return mask;
             })
        .def("set_mask",
             [](Context& c, std::uint8_t chip,
                py::array_t<std::uint8_t, py::array::c_style | py::array::forcecast> mask) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 ovexsdk_chip_pixel_mask record{mask.mutable_data(),
                                                static_cast<std::uint64_t>(mask.size())};
                 Checked("ovexsdk_chip_set_pixel_mask",
                         [&] { return ovexsdk_chip_set_pixel_mask(h, chip, &record); });
             })
        .def("get_threshold",
             [](Context& c, std::uint8_t chip) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 return Get<float>("ovexsdk_chip_get_thld",
                                   [&](float* v) { return ovexsdk_chip_get_thld(h, chip, v); });
             })
        .def("set_threshold",
             [](Context& c, std::uint8_t chip, float kev) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 Checked("ovexsdk_chip_set_thld",
                         [&] { return ovexsdk_chip_set_thld(h, chip, kev); });
             })
        .def("get_raw_threshold",
             [](Context& c, std::uint8_t chip) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 return Get<std::uint32_t>("ovexsdk_chip_get_raw_thld", [&](std::uint32_t* v) {
                     return ovexsdk_chip_get_raw_thld(h, chip, v);
                 });
             })
        .def("set_raw_threshold", [](Context& c, std::uint8_t chip, std::uint32_t raw) {
            ovexsdk_dev_ctx* h = c.Handle();
            Checked("ovexsdk_chip_set_raw_thld",
                    [&] { return ovexsdk_chip_set_raw_thld(h, chip, raw); });
        });
}

using FloatGetter = ovexsdk_err_code (*)(ovexsdk_dev_ctx*, std::uint8_t, float*);
using FloatSetter = ovexsdk_err_code (*)(ovexsdk_dev_ctx*, std::uint8_t, float);

// The controllers of a family (bias supplies, temperature controllers): counted, then
// described by the array rule.
template <typename Info, typename Filled>
std::vector<Info> Controllers(ovexsdk_dev_ctx* h, const char* count_name,
                              ovexsdk_err_code (*count_fn)(ovexsdk_dev_ctx*, std::uint8_t*),
                              const char* info_name,
                              ovexsdk_err_code (*info_fn)(ovexsdk_dev_ctx*, Info*, Filled*)) {
    const auto count =
        Get<std::uint8_t>(count_name, [&](std::uint8_t* v) { return count_fn(h, v); });
    std::vector<Info> infos(count);
    Filled filled = count;
    if (count != 0) {
        Checked(info_name, [&] { return info_fn(h, infos.data(), &filled); });
    }
    infos.resize(filled);
    return infos;
}

// `name(index)` reads a controller's value through `function`; `set_name(index, value)` sets it.
void BindControllerValue(py::class_<Context, ContextPtr>& context, const char* name,
                         const char* function, FloatGetter getter) {
    context.def(name, [function, getter](Context& c, std::uint8_t id) {
        ovexsdk_dev_ctx* h = c.Handle();
        return Get<float>(function, [&](float* v) { return getter(h, id, v); });
    });
}

void BindControllerSetter(py::class_<Context, ContextPtr>& context, const char* name,
                          const char* function, FloatSetter setter) {
    context.def(name, [function, setter](Context& c, std::uint8_t id, float value) {
        ovexsdk_dev_ctx* h = c.Handle();
        Checked(function, [&] { return setter(h, id, value); });
    });
}

void BindHousekeeping(py::class_<Context, ContextPtr>& context) {
    context.def("bias", [](Context& c) {
        py::list out;
        for (const ovexsdk_bias_info& info :
             Controllers(c.Handle(), "ovexsdk_bias_get_count", &ovexsdk_bias_get_count,
                         "ovexsdk_bias_get_info", &ovexsdk_bias_get_info)) {
            out.append(py::make_tuple(info.minimum, info.maximum));
        }
        return out;
    });
    context.def("temperature", [](Context& c) {
        py::list out;
        for (const ovexsdk_temp_ctrl_info& info :
             Controllers(c.Handle(), "ovexsdk_temp_get_count", &ovexsdk_temp_get_count,
                         "ovexsdk_temp_get_info", &ovexsdk_temp_get_info)) {
            out.append(py::make_tuple(info.minimum, info.maximum, info.unit));
        }
        return out;
    });
    BindControllerValue(context, "bias_desired", "ovexsdk_bias_get_desired",
                        &ovexsdk_bias_get_desired);
    BindControllerValue(context, "bias_actual", "ovexsdk_bias_get_actual",
                        &ovexsdk_bias_get_actual);
    BindControllerSetter(context, "set_bias", "ovexsdk_bias_set_desired",
                         &ovexsdk_bias_set_desired);
    BindControllerValue(context, "temperature_desired", "ovexsdk_temp_get_desired",
                        &ovexsdk_temp_get_desired);
    BindControllerValue(context, "temperature_actual", "ovexsdk_temp_get_actual",
                        &ovexsdk_temp_get_actual);
    BindControllerSetter(context, "set_temperature", "ovexsdk_temp_set_desired",
                         &ovexsdk_temp_set_desired);
    context
        .def("monitors",
             [](Context& c) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 const auto count = Get<std::uint32_t>(
                     "ovexsdk_mon_get_count",
                     [&](std::uint32_t* v) { return ovexsdk_mon_get_count(h, v); });
                 py::list out;
                 for (std::uint32_t i = 0; i < count; ++i) {
                     const auto info = Get<ovexsdk_mon_info>(
                         "ovexsdk_mon_get_info",
                         [&](ovexsdk_mon_info* v) { return ovexsdk_mon_get_info(h, i, v); });
                     out.append(py::make_tuple(info.id, info.type,
                                               MonitorValue(info.type, info.minimum),
                                               MonitorValue(info.type, info.maximum)));
                 }
                 return out;
             })
        .def("monitor_value",
             [](Context& c, std::uint32_t index) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 const auto info = Get<ovexsdk_mon_info>(
                     "ovexsdk_mon_get_info",
                     [&](ovexsdk_mon_info* v) { return ovexsdk_mon_get_info(h, index, v); });
                 const auto value = Get<ovexsdk_mon_value>(
                     "ovexsdk_mon_get_value",
                     [&](ovexsdk_mon_value* v) { return ovexsdk_mon_get_value(h, index, v); });
                 return MonitorValue(info.type, value);
             })
        .def("set_monitor_callback", [](Context& c, py::object callback) {
            ovexsdk_dev_ctx* h = c.Handle();
            const bool on = !callback.is_none();
            if (on) {
                c.Monitors().SetCallback(callback);
            }
            c.Monitors().Attach(h, on);
            if (!on) {
                c.Monitors().SetCallback(py::none());
            }
        });
}

void BindAcquisition(py::module_& m, py::class_<Context, ContextPtr>& context) {
    context
        .def("trigger_configure",
             [](Context& c, int mode, float seconds) {
                 ovexsdk_dev_ctx* h = c.Handle();
                 const ovexsdk_trigger_config config{static_cast<ovexsdk_trigger_mode>(mode),
                                                     seconds};
                 Checked("ovexsdk_trigger_configure",
                         [&] { return ovexsdk_trigger_configure(h, &config); });
             })
        .def("select_processing", [](Context& c, int mode) {
            ovexsdk_dev_ctx* h = c.Handle();
            Checked("ovexsdk_acq_select_processing", [&] {
                return ovexsdk_acq_select_processing(h,
                                                     static_cast<ovexsdk_acq_process_mode>(mode));
            });
        });

    py::enum_<ResultKind>(m, "ResultKind")
        .value("HITS", ResultKind::kHits)
        .value("ITOT_PIXELS", ResultKind::kItotPixels)
        .value("SCAN_COUNTS", ResultKind::kScanCounts)
        .value("SCAN_ITOTS", ResultKind::kScanItots)
        .value("SCAN_BINS", ResultKind::kScanBins)
        .value("TPX2_FRAMES", ResultKind::kTpx2Frames);

    py::class_<AcquisitionPlan>(m, "AcquisitionPlan")
        .def(py::init<>())
        .def_readwrite("kind", &AcquisitionPlan::kind)
        .def_readwrite("readouts", &AcquisitionPlan::readouts)
        .def_readwrite("internal_trigger", &AcquisitionPlan::internal_trigger)
        .def_readwrite("seconds", &AcquisitionPlan::seconds)
        .def_readwrite("shutter", &AcquisitionPlan::shutter)
        .def_readwrite("bins_per_line", &AcquisitionPlan::bins_per_line)
        .def_readwrite("lines", &AcquisitionPlan::lines)
        .def_readwrite("bin_width_ns", &AcquisitionPlan::bin_width_ns)
        .def_readwrite("width", &AcquisitionPlan::width)
        .def_readwrite("height", &AcquisitionPlan::height)
        .def_readwrite("raw_path", &AcquisitionPlan::raw_path)
        .def_readwrite("timepix3", &AcquisitionPlan::timepix3)
        .def_readwrite("buffer_bytes", &AcquisitionPlan::buffer_bytes);

    py::class_<Acquisition>(m, "Acquisition")
        .def(py::init<ContextPtr, AcquisitionPlan, py::tuple>(), py::arg("context"),
             py::arg("plan"), py::arg("dtypes"))
        .def("next", &Acquisition::Next)
        .def("stop", &Acquisition::Stop)
        .def_property_readonly("running", &Acquisition::Running)
        .def_property_readonly("raw_bytes", &Acquisition::RawBytes)
        .def_property_readonly("dropped_blocks", &Acquisition::DroppedBlocks);
}

}  // namespace

PYBIND11_MODULE(_core, m) {
    m.doc() = "The compiled core of ovexsdk: the library's C interface; use the package instead.";
    RegisterErrorTranslator();
    LogBridge::Instance().Start();

    m.def("version", [] {
        const ovexsdk_version* v = ovexsdk_version_get();
        return std::make_tuple(v->major, v->minor, v->patch);
    });
    m.def("list_boards", &ListBoards);
    m.def("set_log_sink", [](py::object sink) { LogBridge::Instance().SetSink(std::move(sink)); });
    m.def("shutdown", [] { LogBridge::Instance().Stop(); });

    py::class_<Context, ContextPtr> context = BindContext(m);
    BindChips(context);
    BindHousekeeping(context);
    BindAcquisition(m, context);
}
