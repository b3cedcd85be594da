#include "python/src/PythonBindings.h"
#include "python/src/PythonError.h"
#include "python/src/PythonFrame.h"
#include "python/src/PythonHost.h"
#include "python/src/PythonTracker.h"

#include "host/core/Algorithm.h"
#include "host/core/Properties.h"
#include "host/lib/FactoryRegistry.h"
#include "host/stream/Stream.h"
#include "host/stream/StreamAlgorithm.h"
#include "host/stream/connection/CameraSelection.h"

#include <pybind11/stl.h>

#include <chrono>
#include <cmath>

namespace py = pybind11;

namespace Kestrion::Python {

namespace {

using Clock = std::chrono::steady_clock;

/// Longest wait without the interpreter lock before Python's signal handlers get a chance (Ctrl-C).
constexpr auto SignalCheckInterval = std::chrono::milliseconds(50);

std::string seconds(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

/// What the stream's health says about a wait that brought nothing.
std::string healthNote(const StreamHealth::Snapshot& health) {
    std::string note = std::string("; the stream is ") + StreamHealth::stateName(health.state);
    if (health.sinceLastData)
        note += ", last frame " + seconds(std::chrono::duration<double>(*health.sinceLastData).count()) +
                " s ago";
    if (!health.lastError.empty())
        note += "; last error: " + health.lastError;
    return note;
}

/// Waits for a frame (the oldest, or the newest), without the interpreter lock, in slices short
/// enough for Ctrl-C. None when the source ended (a replayed recording played to its end).
py::object take(PythonTracker& tracker, std::optional<double> timeoutS, bool newest) {
    if (timeoutS && !(*timeoutS >= 0.0))
        throw PythonError(PythonError::Kind::Input, "timeout: a number of seconds of at least 0, or None");
    const auto start = Clock::now();
    const auto deadline =
        timeoutS
            ? start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*timeoutS))
            : Clock::time_point::max();
    for (;;) {
        if (tracker.isClosed() && tracker.queue().size() == 0)
            throw PythonError(PythonError::Kind::General, "the tracker is closed");
        const auto now = Clock::now();
        const auto slice = std::min<Clock::duration>(deadline - now, SignalCheckInterval);
        std::shared_ptr<const StreamData> data;
        {
            py::gil_scoped_release release;
            data = tracker.queue().take(std::max<Clock::duration>(slice, Clock::duration::zero()), newest);
        }
        if (data) {
            if (auto frame = PythonFrame::fromStreamData(data))
                return py::cast(std::move(frame));
            continue;
        }
        if (PyErr_CheckSignals() != 0)
            throw py::error_already_set();
        if (tracker.isClosed())
            continue; // reports the closed tracker
        const StreamHealth::Snapshot health = tracker.health();
        if (health.state == StreamHealth::State::Ended)
            return py::none();
        if (!tracker.running())
            throw PythonError(PythonError::Kind::Camera,
                              "the camera stopped delivering frames (the stream is no longer running)" +
                                  (health.lastError.empty() ? std::string() : ": " + health.lastError));
        if (Clock::now() >= deadline) {
            PyErr_SetString(
                PyExc_TimeoutError,
                ("no frame within " + seconds(timeoutS.value_or(0.0)) + " s" + healthNote(health)).c_str());
            throw py::error_already_set();
        }
    }
}

py::dict healthDict(const StreamHealth::Snapshot& h) {
    py::dict d;
    d["state"] = StreamHealth::stateName(h.state);
    d["since_last_data_s"] =
        h.sinceLastData ? py::object(py::float_(std::chrono::duration<double>(*h.sinceLastData).count()))
                        : py::none();
    d["frames"] = h.dataItems;
    d["outages"] = h.outages;
    d["outage_time_s"] = std::chrono::duration<double>(h.outageTime).count();
    d["reopenings"] = h.reopenings;
    d["last_error"] = h.lastError;
    d["end_reason"] = h.endReason;
    return d;
}

/// The connected cameras, listed by the tracking stream without opening one.
std::vector<ConnectedCamera> connectedCameras() {
    PythonHost::instance().requireAlgorithm(PythonTracker::AlgorithmId);
    std::unique_ptr<Algorithm> algorithm =
        FactoryRegistry::instance().createAlgorithm(PythonTracker::AlgorithmId);
    if (algorithm) {
        Properties properties;
        properties.setParam("open", false);
        properties.setParam("start", false);
        algorithm->configure(&properties);
        algorithm->compute();
    }
    auto* streamAlgorithm = dynamic_cast<StreamAlgorithm*>(algorithm.get());
    const auto* selection =
        dynamic_cast<const CameraSelection*>(streamAlgorithm ? streamAlgorithm->outputStream() : nullptr);
    if (!selection)
        throw PythonError(PythonError::Kind::General, std::string("the tracking stream ") +
                                                          PythonTracker::AlgorithmId +
                                                          " does not list cameras");
    std::string error;
    std::vector<ConnectedCamera> cameras = selection->connectedCameras(&error);
    if (cameras.empty() && !error.empty())
        throw PythonError(PythonError::Kind::Camera, "the cameras could not be listed: " + error);
    return cameras;
}

} // namespace

void bindTracker(py::module_& module) {
    py::class_<ConnectedCamera>(module, "Camera", "A connected camera.")
        .def_readonly("type", &ConnectedCamera::typeName, "The model's name (\"fTk 500\", \"sTk 180\", ...).")
        .def_readonly("serial", &ConnectedCamera::serialNumber, "The serial number.")
        .def_property_readonly(
            "serial_text",
            [](const ConnectedCamera& c) { return CameraSelection::serialText(c.serialNumber); })
        .def("__str__",
             [](const ConnectedCamera& c) {
                 return c.typeName + " " + CameraSelection::serialText(c.serialNumber);
             })
        .def("__repr__", [](const ConnectedCamera& c) {
            return "<Camera " + c.typeName + " " + CameraSelection::serialText(c.serialNumber) + ">";
        });
    module.def(
        "cameras",
        [] {
            py::gil_scoped_release release;
            return connectedCameras();
        },
        "The cameras connected now (type and serial number).");

    py::class_<PythonTracker>(module, "_Session", "A tracking session; kestrion.Tracker is its public face.")
        .def(py::init([](std::vector<std::string> geometries, std::string serial, std::string fiducials,
                         bool images, std::string reference, std::map<std::string, std::string> names,
                         std::string record, bool force, std::size_t queueFrames) {
                 PythonTrackerOptions options;
                 options.geometries = std::move(geometries);
                 options.serial = std::move(serial);
                 options.fiducials = std::move(fiducials);
                 options.images = images;
                 options.reference = std::move(reference);
                 options.names = std::move(names);
                 options.record = std::move(record);
                 options.force = force;
                 options.queueFrames = queueFrames;
                 py::gil_scoped_release release; // opening a camera takes a while
                 return std::make_unique<PythonTracker>(options);
             }),
             py::arg("geometries"), py::arg("serial"), py::arg("fiducials"), py::arg("images"),
             py::arg("reference"), py::arg("names"), py::arg("record"), py::arg("force"),
             py::arg("queue_frames"))
        .def(
            "take", &take, py::arg("timeout"), py::arg("newest"),
            "The oldest (or newest) queued frame, waiting up to timeout s (None: for ever); None at the end.")
        .def(
            "close",
            [](PythonTracker& tracker) {
                std::string problem;
                {
                    py::gil_scoped_release release;
                    problem = tracker.close();
                }
                if (!problem.empty())
                    throw PythonError(PythonError::Kind::Output, problem);
            },
            "Stops and closes the camera; kestrion.OutputError when the recording was not completed.")
        .def_property_readonly("closed", &PythonTracker::isClosed)
        .def_property_readonly("running", &PythonTracker::running)
        .def_property_readonly("dropped", [](PythonTracker& t) { return t.queue().dropped(); })
        .def_property_readonly("received", [](PythonTracker& t) { return t.queue().pushed(); })
        .def_property_readonly("queued", [](PythonTracker& t) { return t.queue().size(); })
        .def_property_readonly("queue_frames", [](PythonTracker& t) { return t.queue().capacity(); })
        .def_property_readonly("health", [](const PythonTracker& t) { return healthDict(t.health()); })
        .def_property_readonly("geometry_instruments", &PythonTracker::geometryInstruments)
        .def_property_readonly("camera",
                               [](const PythonTracker& t) {
                                   ConnectedCamera camera;
                                   camera.typeName = t.cameraType();
                                   camera.serialNumber = t.cameraSerial();
                                   return camera;
                               })
        .def_property_readonly("instruments", [](const PythonTracker& t) {
            std::vector<std::string> ids;
            for (const TrackingInstrument& instrument : t.instruments())
                ids.push_back(instrument.ID());
            return ids;
        });
}

} // namespace Kestrion::Python
