#include "python/src/PythonBindings.h"
#include "python/src/PythonError.h"

namespace py = pybind11;

namespace Kestrion::Python {

namespace {
// The exception classes, made once at import and kept by the module (and here, for the
// translator, which runs with the interpreter lock held).
PyObject* g_types[6] = {};
} // namespace

void bindErrors(py::module_& module) {
    auto make = [&module](const char* name, PyObject* base, const char* doc) {
        PyObject* type =
            PyErr_NewExceptionWithDoc((std::string("kestrion.") + name).c_str(), doc, base, nullptr);
        if (!type)
            throw py::error_already_set();
        module.add_object(name, py::handle(type)); // the module holds the reference
        return type;
    };
    PyObject* error =
        make("Error", PyExc_RuntimeError, "A failure of the tracking system, in its own words.");
    g_types[static_cast<int>(PythonError::Kind::General)] = error;
    g_types[static_cast<int>(PythonError::Kind::Camera)] =
        make("CameraError", error, "No camera, a camera that could not be opened, or a camera lost.");
    g_types[static_cast<int>(PythonError::Kind::License)] =
        make("LicenseError", error, "The tracking plugin is not licensed.");
    g_types[static_cast<int>(PythonError::Kind::Geometry)] =
        make("GeometryError", error,
             "A marker geometry file that cannot be read or loaded, or that the camera refused.");
    g_types[static_cast<int>(PythonError::Kind::Output)] =
        make("OutputError", error, "An output file that cannot or may not be written.");
    g_types[static_cast<int>(PythonError::Kind::Input)] = PyExc_ValueError;

    py::register_exception_translator([](std::exception_ptr pointer) {
        try {
            if (pointer)
                std::rethrow_exception(pointer);
        } catch (const PythonError& e) {
            PyErr_SetString(g_types[static_cast<int>(e.kind())], e.what());
        }
    });
}

} // namespace Kestrion::Python
