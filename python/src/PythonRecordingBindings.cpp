#include "python/src/PythonBindings.h"
#include "python/src/PythonFrame.h"
#include "python/src/PythonRecording.h"

#include <pybind11/stl.h>

namespace py = pybind11;

namespace Kestrion::Python {

namespace {

/// A recording read as a Python iterator, with or without decoding its images.
struct RecordingIterator {
    std::unique_ptr<PythonRecording> recording;
    bool images = true;
};

} // namespace

void bindRecording(py::module_& module) {
    py::class_<RecordingIterator>(
        module, "Recording", "The frames of a session recording, in order (an iterator of kestrion.Frame).")
        .def(py::init([](const std::string& path, bool images) {
                 return RecordingIterator{std::make_unique<PythonRecording>(path), images};
             }),
             py::arg("path"), py::arg("images") = true)
        .def("__iter__", [](RecordingIterator& self) -> RecordingIterator& { return self; })
        .def("__next__",
             [](RecordingIterator& self) {
                 std::shared_ptr<PythonFrame> frame;
                 {
                     py::gil_scoped_release release; // reading and decompressing images takes a while
                     frame = self.recording->next(self.images);
                 }
                 if (!frame)
                     throw py::stop_iteration();
                 return frame;
             })
        .def_property_readonly("path", [](const RecordingIterator& self) { return self.recording->path(); })
        .def_property_readonly(
            "camera", [](const RecordingIterator& self) { return self.recording->header().deviceName; })
        .def_property_readonly(
            "serial", [](const RecordingIterator& self) { return self.recording->header().serialNumber; })
        .def_property_readonly(
            "started_us", [](const RecordingIterator& self) { return self.recording->header().startedUS; })
        .def_property_readonly(
            "with_images", [](const RecordingIterator& self) { return self.recording->header().withImages; })
        .def_property_readonly(
            "geometries",
            [](const RecordingIterator& self) {
                py::dict geometries; // instrument id -> the file it came from
                for (const Recording::Geometry& g : self.recording->header().geometries)
                    geometries[py::str(PythonRecording::instrumentId(g.id))] = g.path;
                return geometries;
            },
            "The geometries registered when the recording began: instrument id -> file.")
        .def_property_readonly("frames_read",
                               [](const RecordingIterator& self) { return self.recording->framesRead(); })
        .def_property_readonly(
            "cut_short", [](const RecordingIterator& self) { return self.recording->cutShort(); },
            "The file ends without its end record (a killed process, a full disk).")
        .def_property_readonly(
            "dropped", [](const RecordingIterator& self) { return self.recording->framesDropped(); },
            "Frames the recorder dropped (known at the end of a complete recording).");
}

} // namespace Kestrion::Python
