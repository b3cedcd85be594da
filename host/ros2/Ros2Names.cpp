#include "host/ros2/Ros2Names.h"

#include "host/stream/state/InstrumentNames.h"

namespace Kestrion::Ros2 {

namespace {

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

} // namespace

std::string Ros2Names::toolName(const InstrumentNames* names, const std::string& instrumentId) {
    if (names) {
        const std::string name = names->userName(instrumentId);
        if (!name.empty())
            return name;
    }
    std::string name = instrumentId;
    for (char& c : name)
        if (!isLetter(c) && !isDigit(c))
            c = '_';
    if (name.empty() || isDigit(name.front()))
        name = "tool_" + name;
    return name;
}

std::optional<std::string> Ros2Names::namespaceProblem(const std::string& nameSpace) {
    const std::string plain = plainNamespace(nameSpace);
    const std::string quoted = "the ROS 2 namespace '" + nameSpace + "'";
    if (plain.empty())
        return quoted + " is empty";
    std::size_t tokenStart = 0;
    for (std::size_t i = 0; i <= plain.size(); ++i) {
        if (i < plain.size() && plain[i] != '/') {
            const char c = plain[i];
            if (!isLetter(c) && c != '_' && !(isDigit(c) && i > tokenStart))
                return quoted + (isDigit(c) ? " has a part beginning with a digit"
                                            : " holds '" + std::string(1, c) +
                                                  "': only letters, digits, '_' and '/' are allowed");
            continue;
        }
        if (i == tokenStart)
            return quoted + " has an empty part";
        tokenStart = i + 1;
    }
    return std::nullopt;
}

std::string Ros2Names::plainNamespace(const std::string& nameSpace) {
    return !nameSpace.empty() && nameSpace.front() == '/' ? nameSpace.substr(1) : nameSpace;
}

std::optional<std::string> Ros2Names::frameProblem(const std::string& frameId) {
    const std::string quoted = "the frame name '" + frameId + "'";
    if (frameId.empty())
        return quoted + " is empty";
    if (frameId.front() == '/' || frameId.back() == '/')
        return quoted + " begins or ends with '/'";
    for (char c : frameId)
        if (!isLetter(c) && !isDigit(c) && c != '_' && c != '/')
            return quoted + " holds '" + std::string(1, c) +
                   "': only letters, digits, '_' and '/' are allowed";
    return std::nullopt;
}

std::string Ros2Names::poseTopic(const std::string& nameSpace, const std::string& tool) {
    return "rt/" + plainNamespace(nameSpace) + "/" + tool + "/pose";
}

std::string Ros2Names::fiducialsTopic(const std::string& nameSpace) {
    return "rt/" + plainNamespace(nameSpace) + "/fiducials";
}

} // namespace Kestrion::Ros2
