// A Python callable that the library's threads call: set and cleared on a Python thread, called
// from any thread, which takes the GIL only when there is a callable. Nothing is called once the
// interpreter is ending. An exception the callable raises goes to sys.unraisablehook: nobody on
// the library's threads could take it.
#pragma once

#include <pybind11/pybind11.h>

#include <mutex>

namespace ovex::python {

class PythonCallable {
public:
    PythonCallable() = default;
    ~PythonCallable();
    PythonCallable(const PythonCallable&) = delete;
    PythonCallable& operator=(const PythonCallable&) = delete;

    // With the GIL; None clears.
    void Set(pybind11::object callable);

    // Calls `call(callable)` with the GIL held, if there is a callable; `what` names it in the
    // report of an exception. From any thread.
    template <typename Call>
    void Invoke(const char* what, Call&& call) {
        if (!Present() || !Py_IsInitialized() || _Py_IsFinalizing()) {
            return;
        }
        pybind11::gil_scoped_acquire gil;
        const pybind11::object callable = Take();
        if (!callable) {
            return;
        }
        try {
            call(callable);
        } catch (pybind11::error_already_set& error) {
            error.discard_as_unraisable(what);
        }
    }

private:
    bool Present();
    // A new reference to the callable, or null; with the GIL.
    pybind11::object Take();

    std::mutex m_mutex;
    PyObject* m_callable = nullptr;  // owned reference
};

}  // namespace ovex::python
