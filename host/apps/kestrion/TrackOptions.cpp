#include "host/apps/kestrion/TrackOptions.h"

#include "host/ros2/Ros2DomainConfig.h"
#include "host/ros2/Ros2Names.h"
#include "host/stream/connection/CameraSelection.h"
#include "host/stream/state/InstrumentNames.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace Kestrion::Cli {

namespace {

std::optional<double> parseNumber(const std::string& text) {
    if (text.empty())
        return std::nullopt;
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(text.c_str(), &end);
    if (errno != 0 || *end != '\0' || !std::isfinite(value))
        return std::nullopt;
    return value;
}

std::optional<std::int64_t> parseInteger(const std::string& text) {
    if (text.empty())
        return std::nullopt;
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0')
        return std::nullopt;
    return value;
}

} // namespace

std::vector<std::string> TrackOptions::exampleGeometries() {
    return {":/markers/geometry1000.ini", ":/markers/geometry1001.ini"};
}

std::optional<TrackOptions> TrackOptions::parse(const std::vector<std::string>& arguments,
                                                std::string* error) {
    TrackOptions options;
    auto fail = [error](const std::string& message) -> std::optional<TrackOptions> {
        if (error)
            *error = message;
        return std::nullopt;
    };
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& option = arguments[i];
        if (option == "--force" || option == "--reconnect") {
            (option == "--force" ? options.force : options.reconnect) = true;
            continue;
        }
        if (option == "--record-images" || option == "--ros2") {
            (option == "--ros2" ? options.ros2 : options.recordImages) = true;
            continue;
        }
        const bool takesValue =
            option == "--geometry" || option == "--workspace" || option == "--fiducials" ||
            option == "--images" || option == "--integration-time" || option == "--duration" ||
            option == "--frames" || option == "--csv" || option == "--refresh" || option == "--igtl" ||
            option == "--igtl-bind" || option == "--record" || option == "--sequence" ||
            option == "--poll-ms" || option == "--serial" || option == "--ros2-domain" ||
            option == "--ros2-namespace" || option == "--ros2-frame" || option == "--ros2-network" ||
            option == "--name" || option == "--reference";
        if (!takesValue)
            return fail(option.rfind("-", 0) == 0 ? "unknown option '" + option + "'"
                                                  : "unexpected argument '" + option + "'");
        if (i + 1 >= arguments.size() || arguments[i + 1].empty())
            return fail("option " + option + " needs a value");
        const std::string& value = arguments[++i];
        if (option == "--geometry") {
            options.geometries.push_back(value);
        } else if (option == "--workspace") {
            if (!options.workspace.empty())
                return fail("option --workspace given twice");
            options.workspace = value;
        } else if (option == "--fiducials") {
            static const char* const modes[] = {"none", "marker", "vicinity", "all"};
            for (int mode = 0; mode < 4; ++mode)
                if (value == modes[mode])
                    options.fiducialMode = mode;
            if (!options.fiducialMode)
                return fail("--fiducials takes none, marker, vicinity or all, not '" + value + "'");
        } else if (option == "--images") {
            options.imagesFolder = value;
        } else if (option == "--csv") {
            options.csvFile = value;
        } else if (option == "--record") {
            options.recordFile = value;
        } else if (option == "--sequence") {
            options.sequenceFile = value;
        } else if (option == "--integration-time") {
            const auto us = parseInteger(value);
            if (!us || *us < 1 || *us > 1000000)
                return fail("--integration-time takes microseconds from 1 to 1000000, not '" + value + "'");
            options.integrationTimeUS = static_cast<int>(*us);
        } else if (option == "--igtl") {
            const auto port = parseInteger(value);
            if (!port || *port < 0 || *port > 65535)
                return fail("--igtl takes a TCP port from 0 to 65535, not '" + value + "'");
            options.igtlPort = static_cast<int>(*port);
        } else if (option == "--igtl-bind") {
            options.igtlBind = value;
        } else if (option == "--ros2-domain") {
            const auto domain = parseInteger(value);
            if (!domain || *domain < 0 || *domain > Ros2::Ros2DomainConfig::MaxDomainId)
                return fail("--ros2-domain takes a domain number from 0 to " +
                            std::to_string(Ros2::Ros2DomainConfig::MaxDomainId) + ", not '" + value + "'");
            options.ros2Domain = static_cast<int>(*domain);
        } else if (option == "--ros2-namespace" || option == "--ros2-frame") {
            const auto problem = option == "--ros2-frame" ? Ros2::Ros2Names::frameProblem(value)
                                                          : Ros2::Ros2Names::namespaceProblem(value);
            if (problem)
                return fail(option + ": " + *problem);
            (option == "--ros2-frame" ? options.ros2Frame : options.ros2Namespace) = value;
        } else if (option == "--name") {
            const std::size_t equals = value.find('=');
            if (equals == std::string::npos || equals == 0)
                return fail("--name takes INSTRUMENT=NAME (as in atracsys-1000=Stylus), not '" + value + "'");
            const std::string id = value.substr(0, equals);
            const std::string name = value.substr(equals + 1);
            if (const auto problem = InstrumentNames::nameProblem(name))
                return fail("--name " + value + ": " + *problem);
            for (const auto& [otherId, otherName] : options.names) {
                if (otherId == id)
                    return fail("--name: " + id + " is named twice ('" + otherName + "' and '" + name + "')");
                if (otherName == name)
                    return fail("--name: '" + name + "' is given to both " + otherId + " and " + id);
            }
            options.names.emplace_back(id, name);
        } else if (option == "--reference") {
            if (!options.referenceId.empty())
                return fail("option --reference given twice");
            options.referenceId = value;
        } else if (option == "--ros2-network") {
            options.ros2Network = value;
        } else if (option == "--poll-ms") {
            const auto ms = parseInteger(value);
            if (!ms || *ms < 0 || *ms > 1000)
                return fail("--poll-ms takes milliseconds from 0 to 1000, not '" + value + "'");
            options.pollMs = static_cast<int>(*ms);
        } else if (option == "--serial") {
            std::uint64_t serial = 0;
            if (!CameraSelection::parseSerial(value, serial) || serial == 0)
                return fail("--serial takes a camera's serial number (0x... or decimal), not '" + value +
                            "'");
            options.serialNumber = serial;
        } else if (option == "--frames") {
            const auto n = parseInteger(value);
            if (!n || *n < 1)
                return fail("--frames takes a positive number of frames, not '" + value + "'");
            options.frames = static_cast<std::uint64_t>(*n);
        } else {
            const auto seconds = parseNumber(value);
            if (!seconds || *seconds <= 0)
                return fail(option + " takes a positive number of seconds, not '" + value + "'");
            if (option == "--duration")
                options.durationS = *seconds;
            else
                options.refreshS = *seconds;
        }
    }
    if (options.igtlBind != "127.0.0.1" && !options.igtlPort)
        return fail("--igtl-bind needs --igtl PORT");
    for (const char* ros2Option : {"--ros2-domain", "--ros2-namespace", "--ros2-frame", "--ros2-network"})
        if (!options.ros2 && std::find(arguments.begin(), arguments.end(), ros2Option) != arguments.end())
            return fail(std::string(ros2Option) + " needs --ros2");
    if (options.recordImages && options.recordFile.empty())
        return fail("--record-images needs --record FILE");
    return options;
}

} // namespace Kestrion::Cli
