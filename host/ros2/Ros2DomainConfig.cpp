#include "host/ros2/Ros2DomainConfig.h"

#include "host/ros2/Ros2Settings.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>

namespace Kestrion::Ros2 {

namespace {

// Automatic participant indexes up to this one are probed on 127.0.0.1: as many ROS 2
// participants (processes) as that on this computer find each other.
constexpr int MaxAutoParticipantIndex = 32;

std::string loopbackConfiguration() {
    return "<CycloneDDS><Domain id=\"any\"><General><Interfaces>"
           "<NetworkInterface address=\"127.0.0.1\"/></Interfaces>"
           "<AllowMulticast>false</AllowMulticast></General>"
           "<Discovery><ParticipantIndex>auto</ParticipantIndex><MaxAutoParticipantIndex>" +
           std::to_string(MaxAutoParticipantIndex) +
           "</MaxAutoParticipantIndex><Peers><Peer address=\"127.0.0.1\"/></Peers></Discovery>"
           "</Domain></CycloneDDS>";
}

std::string interfaceConfiguration(const std::string& networkInterface) {
    in_addr address{};
    const bool isAddress = ::inet_pton(AF_INET, networkInterface.c_str(), &address) == 1;
    return std::string("<CycloneDDS><Domain id=\"any\"><General><Interfaces><NetworkInterface ") +
           (isAddress ? "address" : "name") + "=\"" + networkInterface +
           "\"/></Interfaces></General></Domain></CycloneDDS>";
}

bool isPlainName(const std::string& text) {
    for (char c : text)
        if (c == '<' || c == '>' || c == '"' || c == '&' || c == '\'' || c == ',' || c == ' ')
            return false;
    return !text.empty();
}

} // namespace

std::optional<Ros2DomainConfig> Ros2DomainConfig::make(const Ros2Settings& settings, const char* rosDomainId,
                                                       const char* cycloneUri, std::string* error) {
    auto fail = [error](const std::string& message) -> std::optional<Ros2DomainConfig> {
        if (error)
            *error = message;
        return std::nullopt;
    };
    Ros2DomainConfig config;
    if (settings.domainId) {
        if (*settings.domainId < 0 || *settings.domainId > MaxDomainId)
            return fail("the ROS 2 domain " + std::to_string(*settings.domainId) + " is not between 0 and " +
                        std::to_string(MaxDomainId));
        config.domainId = *settings.domainId;
    } else if (rosDomainId && *rosDomainId) {
        char* end = nullptr;
        errno = 0;
        const long value = std::strtol(rosDomainId, &end, 10);
        const bool digitFirst = *rosDomainId >= '0' && *rosDomainId <= '9'; // strtol skips blanks and signs
        if (!digitFirst || errno != 0 || *end != '\0' || value < 0 || value > MaxDomainId)
            return fail(std::string("ROS_DOMAIN_ID '") + rosDomainId + "' is not a domain number from 0 to " +
                        std::to_string(MaxDomainId));
        config.domainId = static_cast<int>(value);
    }
    if (!settings.networkInterface.empty() && !isPlainName(settings.networkInterface))
        return fail("'" + settings.networkInterface + "' is not a network interface name or IPv4 address");

    const bool userConfiguration = cycloneUri && *cycloneUri;
    if (userConfiguration)
        config.configuration = cycloneUri;
    if (!settings.networkInterface.empty()) {
        // Later fragments override earlier ones: the interface asked for wins.
        config.configuration +=
            (userConfiguration ? "," : "") + interfaceConfiguration(settings.networkInterface);
        config.reach = "interface " + settings.networkInterface;
        config.reachesNetwork = true;
    } else if (userConfiguration) {
        config.reach = "CYCLONEDDS_URI";
        // The user's configuration decides; it may well open the network.
        config.reachesNetwork = true;
    } else {
        config.configuration = loopbackConfiguration();
        config.reach = "loopback only";
    }
    return config;
}

std::optional<Ros2DomainConfig> Ros2DomainConfig::fromEnvironment(const Ros2Settings& settings,
                                                                  std::string* error) {
    return make(settings, std::getenv("ROS_DOMAIN_ID"), std::getenv("CYCLONEDDS_URI"), error);
}

} // namespace Kestrion::Ros2
