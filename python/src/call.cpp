#include "call.hpp"

#include <pybind11/stl.h>

#include "log_bridge.hpp"

namespace py = pybind11;

namespace ovex::python {

CallError::CallError(ovexsdk_err_code code, std::string function,
                     std::vector<std::string> log_lines, std::string detail, bool timed_out)
    : std::runtime_error(function + " failed"),
      m_code(code),
      m_function(std::move(function)),
      m_log_lines(std::move(log_lines)),
      m_detail(std::move(detail)),
      m_timed_out(timed_out) {}

std::uint64_t ProblemsSoFar() {
    return LogBridge::Instance().ProblemCount();
}

void CheckResult(ovexsdk_err_code code, const char* function, std::uint64_t problems_before) {
    if (code == OVEXSDK_OK) {
        return;
    }
    throw CallError(code, function, LogBridge::Instance().ProblemsSince(problems_before));
}

void RegisterErrorTranslator() {
    py::register_exception_translator([](std::exception_ptr pending) {
        try {
            if (pending) {
                std::rethrow_exception(pending);
            }
        } catch (const CallError& error) {
            const py::object make = py::module_::import("ovexsdk._errors").attr("_from_call");
            const py::object exception = make(static_cast<int>(error.code()), error.function(),
                                              error.log_lines(), error.detail(), error.timed_out());
            PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(exception.ptr())), exception.ptr());
        }
    });
}

}  // namespace ovex::python
