// Library calls from Python: each runs without the GIL, so that the library's own threads (the
// logger, monitor tasks, the data callback) can reach Python meanwhile, and a failure becomes
// an exception of the package that carries the result code and the library's own words.
#pragma once

#include <pybind11/pybind11.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "ovexsdk.h"

namespace ovex::python {

// A call that failed: the function, its result code and the warning and error lines the
// library logged for it. `timed_out` marks a wait of the package's own that ran out.
class CallError : public std::runtime_error {
public:
    CallError(ovexsdk_err_code code, std::string function, std::vector<std::string> log_lines,
              std::string detail = {}, bool timed_out = false);

    ovexsdk_err_code code() const noexcept { return m_code; }
    const std::string& function() const noexcept { return m_function; }
    const std::vector<std::string>& log_lines() const noexcept { return m_log_lines; }
    const std::string& detail() const noexcept { return m_detail; }
    bool timed_out() const noexcept { return m_timed_out; }

private:
    ovexsdk_err_code m_code;
    std::string m_function;
    std::vector<std::string> m_log_lines;
    std::string m_detail;
    bool m_timed_out;
};

// Throws CallError for a failed result, with the library's lines about it. Call it without the
// GIL: the lines may still be on their way through the logger, which may need the GIL.
void CheckResult(ovexsdk_err_code code, const char* function, std::uint64_t problems_before);

// How many warning and error lines the library has logged so far.
std::uint64_t ProblemsSoFar();

// Runs `call` (a library call returning ovexsdk_err_code) with the GIL released and throws
// CallError when it fails.
template <typename Call>
void Checked(const char* function, Call&& call) {
    pybind11::gil_scoped_release no_gil;
    const std::uint64_t before = ProblemsSoFar();
    CheckResult(std::forward<Call>(call)(), function, before);
}

// Turns CallError into the package's exception classes (ovexsdk._errors).
void RegisterErrorTranslator();

}  // namespace ovex::python
