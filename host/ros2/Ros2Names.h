#pragma once

#include <optional>
#include <string>

namespace Kestrion {
class InstrumentNames;
}

namespace Kestrion::Ros2 {

/// The names ROS 2 sees: frames, topics as they are named on DDS ("rt/..."), and what makes a
/// namespace or a frame name usable.
class Ros2Names {
public:
    /// The frame and topic name of an instrument: the user's name when it has one, else its id
    /// with every character other than a letter, a digit or '_' as '_' ("atracsys-1000" gives
    /// "atracsys_1000"), "tool_" before an id that begins with a digit.
    static std::string toolName(const InstrumentNames* names, const std::string& instrumentId);

    /// Why a namespace cannot be used (in words, naming it), or none: one or more ROS name tokens
    /// (a letter or '_', then letters, digits and '_') separated by '/', a leading '/' allowed.
    static std::optional<std::string> namespaceProblem(const std::string& nameSpace);
    /// A namespace without its leading '/'.
    static std::string plainNamespace(const std::string& nameSpace);
    /// Why a frame name cannot be used, or none: letters, digits, '_' and '/' inside, not empty.
    static std::optional<std::string> frameProblem(const std::string& frameId);

    static constexpr const char* TfTopic = "rt/tf";
    static constexpr const char* DiagnosticsTopic = "rt/diagnostics";
    /// "rt/<namespace>/<tool>/pose".
    static std::string poseTopic(const std::string& nameSpace, const std::string& tool);
    /// "rt/<namespace>/fiducials".
    static std::string fiducialsTopic(const std::string& nameSpace);
};

} // namespace Kestrion::Ros2
