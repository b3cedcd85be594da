#include "python/src/PythonBindings.h"
#include "python/src/PythonFrame.h"

#include "host/core/Image.h"
#include "host/core/SharedImage.h"
#include "host/stream/TrackingStreamData.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <cstdio>

namespace py = pybind11;

namespace Kestrion::Python {

namespace {

py::array matrix(const Eigen::Matrix4d& m) {
    py::array_t<double> array({4, 4});
    auto out = array.mutable_unchecked<2>();
    for (py::ssize_t r = 0; r < 4; ++r)
        for (py::ssize_t c = 0; c < 4; ++c)
            out(r, c) = m(r, c);
    return std::move(array);
}

py::object vector3(const std::optional<Eigen::Vector3d>& v) {
    if (!v)
        return py::none();
    py::array_t<double> array(3);
    auto out = array.mutable_unchecked<1>();
    for (py::ssize_t i = 0; i < 3; ++i)
        out(i) = (*v)(i);
    return std::move(array);
}

/// A read-only view of memory that `owner` keeps alive for as long as the array lives.
template <class Owner>
py::array view(const py::dtype& type, std::vector<py::ssize_t> shape, std::vector<py::ssize_t> strides,
               const void* data, Owner owner) {
    py::capsule base(new Owner(std::move(owner)), [](void* pointer) { delete static_cast<Owner*>(pointer); });
    py::array array(type, std::move(shape), std::move(strides), data, base);
    py::detail::array_proxy(array.ptr())->flags &= ~py::detail::npy_api::NPY_ARRAY_WRITEABLE_;
    return array;
}

py::object imageView(const std::shared_ptr<SharedImage>& shared) {
    const Image& image = *shared->image();
    py::dtype type;
    switch (image.pixelType()) {
    case PixelType::UInt8:
        type = py::dtype::of<std::uint8_t>();
        break;
    case PixelType::UInt16:
        type = py::dtype::of<std::uint16_t>();
        break;
    default:
        return py::none();
    }
    const auto element = static_cast<py::ssize_t>(pixelTypeSize(image.pixelType()));
    const auto channels = static_cast<py::ssize_t>(image.channels());
    std::vector<py::ssize_t> shape{image.height(), image.width()};
    std::vector<py::ssize_t> strides{image.width() * channels * element, channels * element};
    if (channels > 1) {
        shape.push_back(channels);
        strides.push_back(element);
    }
    return view(type, std::move(shape), std::move(strides), image.rawData(), shared);
}

std::string toolText(const PythonTool& tool) {
    if (!tool.tracked)
        return "<Tool " + tool.name + ": not tracked" +
               (tool.reason.empty() ? "" : " (" + tool.reason + ")") + ">";
    char text[160];
    std::snprintf(text, sizeof text, ": %.2f %.2f %.2f mm, quality %.3f>", tool.pose(0, 3), tool.pose(1, 3),
                  tool.pose(2, 3), tool.quality);
    return "<Tool " + tool.name + text;
}

} // namespace

void bindFrames(py::module_& module) {
    py::class_<PythonTool>(module, "Tool", "One instrument in one frame.")
        .def_readonly("id", &PythonTool::id, "The instrument id (\"atracsys-1000\").")
        .def_readonly("name", &PythonTool::name, "The user's name of the instrument, else its id.")
        .def_readonly("tracked", &PythonTool::tracked, "Whether the instrument is tracked in this frame.")
        .def_property_readonly(
            "pose", [](const PythonTool& tool) { return matrix(tool.pose); },
            "4x4 pose in the camera frame (mm); NaN while not tracked.")
        .def_readonly("quality", &PythonTool::quality, "0 (not tracked) to 1 (best).")
        .def_property_readonly(
            "status",
            [](const PythonTool& tool) {
                return tool.status.empty() ? py::object(py::none()) : py::str(tool.status);
            },
            "\"tracked\", \"high error\", \"partly seen\", \"unmatched\", \"not in view\", \"not on "
            "camera\", "
            "\"inactive\", or None when the frame does not say.")
        .def_property_readonly(
            "reason",
            [](const PythonTool& tool) {
                return tool.reason.empty() ? py::object(py::none()) : py::str(tool.reason);
            },
            "Why the instrument is or is not tracked, in words, or None.")
        .def_readonly("registration_error_mm", &PythonTool::registrationErrorMm,
                      "How far the fiducials seen lie from the geometry (mm); NaN when unknown.")
        .def_property_readonly(
            "tip", [](const PythonTool& tool) { return vector3(tool.tip); },
            "The calibrated tool tip in the camera frame (mm), or None.")
        .def_property_readonly(
            "ref_pose",
            [](const PythonTool& tool) {
                return tool.poseInReference ? py::object(matrix(*tool.poseInReference))
                                            : py::object(py::none());
            },
            "4x4 pose in the reference instrument's frame, or None (no reference, or not both tracked).")
        .def("__repr__", &toolText);

    py::class_<PythonFrame, std::shared_ptr<PythonFrame>>(module, "Frame", "One frame of a tracking stream.")
        .def_property_readonly("counter", &PythonFrame::counter,
                               "The camera's frame counter (None if unknown).")
        .def_property_readonly(
            "capture_us", &PythonFrame::captureUs,
            "When the frame was captured (else received): microseconds since the epoch, UTC.")
        .def_property_readonly("arrival_ms", &PythonFrame::arrivalMs,
                               "When the host received the frame: milliseconds since the epoch, UTC.")
        .def_property_readonly("device_us", &PythonFrame::deviceUs,
                               "The camera's own timestamp of the frame (microseconds), or None.")
        .def_property_readonly("reference", &PythonFrame::referenceId,
                               "The reference instrument's id, or None.")
        .def_property_readonly(
            "tools",
            [](const PythonFrame& frame) {
                py::dict tools;
                for (PythonTool& tool : frame.tools()) {
                    py::str id(tool.id);
                    tools[id] = py::cast(std::move(tool));
                }
                return tools;
            },
            "dict: instrument id -> Tool (made at each access: keep it in a variable).")
        .def_property_readonly(
            "fiducials",
            [](const std::shared_ptr<PythonFrame>& frame) -> py::array {
                std::size_t count = 0;
                const double* data = frame->fiducials(count);
                if (!data)
                    return py::array_t<double>(std::vector<py::ssize_t>{0, 3});
                return view(
                    py::dtype::of<double>(), {static_cast<py::ssize_t>(count), 3},
                    {3 * static_cast<py::ssize_t>(sizeof(double)), static_cast<py::ssize_t>(sizeof(double))},
                    data, frame);
            },
            "The raw 3D fiducials, N x 3 (mm, camera frame), read-only, without a copy.")
        .def_property_readonly(
            "images",
            [](const PythonFrame& frame) -> py::object {
                if (!frame.leftImage() || !frame.rightImage())
                    return py::none();
                return py::make_tuple(imageView(frame.leftImage()), imageView(frame.rightImage()));
            },
            "None, or the (left, right) camera images as 2D uint8 arrays, read-only, without a copy.")
        .def("__repr__", [](const PythonFrame& frame) {
            const auto counter = frame.counter();
            return "<Frame " + (counter ? std::to_string(*counter) : std::string("?")) + ", " +
                   std::to_string(frame.tracking().instruments().size()) + " tool(s)>";
        });
}

} // namespace Kestrion::Python
