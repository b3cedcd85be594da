#pragma once

#include <pybind11/pybind11.h>

namespace Kestrion::Python {

/// The parts of the native module `kestrion._kestrion`, each in its own file.
void bindErrors(pybind11::module_& module);
void bindFrames(pybind11::module_& module);
void bindTracker(pybind11::module_& module);
void bindRecording(pybind11::module_& module);
void bindCalibration(pybind11::module_& module);

} // namespace Kestrion::Python
