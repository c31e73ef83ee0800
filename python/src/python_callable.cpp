#include "python_callable.hpp"

namespace py = pybind11;

namespace ovex::python {

PythonCallable::~PythonCallable() {
    if (m_callable && Py_IsInitialized() && !_Py_IsFinalizing()) {
        py::gil_scoped_acquire gil;
        Py_CLEAR(m_callable);
    }
}

void PythonCallable::Set(py::object callable) {
    PyObject* old = nullptr;
    {
        std::lock_guard lock(m_mutex);
        old = m_callable;
        m_callable = callable.is_none() ? nullptr : callable.release().ptr();
    }
    Py_XDECREF(old);
}

bool PythonCallable::Present() {
    std::lock_guard lock(m_mutex);
    return m_callable != nullptr;
}

py::object PythonCallable::Take() {
    std::lock_guard lock(m_mutex);
    return py::reinterpret_borrow<py::object>(m_callable);
}

}  // namespace ovex::python
