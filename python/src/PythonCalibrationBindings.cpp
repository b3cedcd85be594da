#include "python/src/PythonBindings.h"
#include "python/src/PythonError.h"

#include "host/calibration/PivotCalibration.h"

#include <pybind11/numpy.h>

#include <cmath>
#include <iomanip>
#include <sstream>

namespace py = pybind11;

namespace Kestrion::Python {

namespace {

using Solver = PivotCalibration;

/// The solve's result as Python sees it, with the frames left out because they held no pose.
struct PivotResult {
    Solver::Result result;
    std::size_t skippedFrames = 0;
};

py::object point(const Eigen::Vector3d& p, bool solved) {
    if (!solved)
        return py::none();
    py::array_t<double> array(3);
    auto out = array.mutable_unchecked<1>();
    for (py::ssize_t i = 0; i < 3; ++i)
        out(i) = p(i);
    return std::move(array);
}

std::string text(const PivotResult& r) {
    std::ostringstream out;
    out << std::fixed << std::setprecision(3);
    if (!r.result.solved())
        return "<PivotResult: no tip found: " + r.result.refusal + ">";
    const Eigen::Vector3d& tip = r.result.tipInMarker;
    const Eigen::Vector3d& pivot = r.result.pivotInCamera;
    out << "<PivotResult: tip " << tip.x() << " " << tip.y() << " " << tip.z() << " mm (marker frame), pivot "
        << pivot.x() << " " << pivot.y() << " " << pivot.z() << " mm (camera frame), RMS " << r.result.rmsMM
        << " mm, " << r.result.usedFrames << " frames used, " << r.result.rejectedFrames << " rejected>";
    return out.str();
}

/// Solves for poses given as an N x 4 x 4 array; poses holding a NaN (a tool not tracked) are
/// left out and counted.
PivotResult solve(const py::array_t<double, py::array::c_style | py::array::forcecast>& poses) {
    if (poses.ndim() != 3 || poses.shape(1) != 4 || poses.shape(2) != 4)
        throw PythonError(PythonError::Kind::Input, "poses: a sequence of 4x4 matrices is needed");
    const auto in = poses.unchecked<3>();
    std::vector<Eigen::Matrix4d> matrices;
    matrices.reserve(static_cast<std::size_t>(poses.shape(0)));
    PivotResult result;
    for (py::ssize_t n = 0; n < poses.shape(0); ++n) {
        Eigen::Matrix4d m;
        for (py::ssize_t r = 0; r < 4; ++r)
            for (py::ssize_t c = 0; c < 4; ++c)
                m(r, c) = in(n, r, c);
        if (!m.allFinite()) {
            ++result.skippedFrames;
            continue;
        }
        matrices.push_back(m);
    }
    py::gil_scoped_release release;
    result.result = Solver().solve(matrices);
    return result;
}

} // namespace

void bindCalibration(py::module_& module) {
    py::class_<PivotResult>(module, "PivotResult", "What a pivot calibration found, or why it found nothing.")
        .def_property_readonly("solved", [](const PivotResult& r) { return r.result.solved(); })
        .def_property_readonly(
            "refusal",
            [](const PivotResult& r) {
                return r.result.solved() ? py::object(py::none()) : py::str(r.result.refusal);
            },
            "Why the poses give no tip, in words (None when solved).")
        .def_property_readonly(
            "tip", [](const PivotResult& r) { return point(r.result.tipInMarker, r.result.solved()); },
            "The tip in the marker's frame (mm), or None.")
        .def_property_readonly(
            "pivot", [](const PivotResult& r) { return point(r.result.pivotInCamera, r.result.solved()); },
            "The pivot point in the camera's frame (mm), or None.")
        .def_property_readonly(
            "rms_mm", [](const PivotResult& r) { return r.result.rmsMM; },
            "RMS distance between the pivot point and where the used poses put the tip.")
        .def_property_readonly("used_frames", [](const PivotResult& r) { return r.result.usedFrames; })
        .def_property_readonly(
            "rejected_frames", [](const PivotResult& r) { return r.result.rejectedFrames; },
            "Poses left out of the solve as outliers.")
        .def_property_readonly(
            "skipped_frames", [](const PivotResult& r) { return r.skippedFrames; },
            "Poses that held no measurement (NaN: the tool not tracked).")
        .def_property_readonly(
            "spread_deg", [](const PivotResult& r) { return r.result.spreadDeg; },
            "The widest angle between two of the orientations.")
        .def("__repr__", &text);
    module.def("_pivot_calibration", &solve, py::arg("poses"));
}

} // namespace Kestrion::Python
