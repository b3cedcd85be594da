#include "python/src/PythonBindings.h"
#include "python/src/PythonError.h"
#include "python/src/PythonHost.h"

#include "host/core/Log.h"

#include <pybind11/stl.h>

namespace py = pybind11;

// The native part of the Python package `kestrion`; kestrion/__init__.py builds the public API
// on it.
PYBIND11_MODULE(_kestrion, module) {
    using namespace Kestrion::Python;
    module.doc() = "Native part of the kestrion package: the host platform's plugins, tracking streams, "
                   "recordings and pivot calibration.";
    // A library in someone's program says little: warnings and errors, unless asked for more.
    Kestrion::Log::setGlobalLevel(Kestrion::Log::Warning);

    module.def(
        "set_installation",
        [](const std::string& pluginFolder, const std::string& licenseFile) {
            PythonHost::instance().setInstallation(pluginFolder, licenseFile);
        },
        py::arg("plugin_folder"), py::arg("license_file"),
        "The plugin folder and licence used when KESTRION_PLUGIN_PATH and KESTRION_LICENSE are not set.");
    module.def(
        "plugin_folders", [] { return PythonHost::instance().pluginFolders(); },
        "The folders the plugins are loaded from.");
    module.def(
        "set_log_level",
        [](const std::string& level) {
            const int parsed = Kestrion::Log::parseLevel(level);
            if (parsed < 0)
                throw PythonError(PythonError::Kind::Input,
                                  "log level: trace, debug, info, warning, error or fatal, not \"" + level +
                                      "\"");
            Kestrion::Log::setGlobalLevel(parsed);
        },
        py::arg("level"), "Which of the host's log lines reach stderr: \"trace\" ... \"fatal\".");

    bindErrors(module);
    bindFrames(module);
    bindTracker(module);
    bindRecording(module);
    bindCalibration(module);
}
