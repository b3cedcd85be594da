#pragma once

#include <optional>
#include <string>

namespace Kestrion::Ros2 {

struct Ros2Settings;

/// The DDS domain a publisher joins and how Cyclone DDS is configured for it.
///
/// Without an interface named, discovery and data stay on the loopback interface: no multicast,
/// discovery by unicast to 127.0.0.1 (a participant index chosen automatically), so that only
/// this computer's ROS 2 nodes see the data. A named interface (name or IPv4 address) publishes
/// on it with Cyclone's defaults there (multicast discovery). CYCLONEDDS_URI, when set, is the
/// user's own configuration and is used as ROS 2 uses it; a named interface then still applies.
struct Ros2DomainConfig {
    int domainId = 0;
    /// What dds_create_domain is given: configuration fragments, the user's first.
    std::string configuration;
    /// Where the data goes, in words: "loopback only", "interface eth0", "CYCLONEDDS_URI".
    std::string reach;
    /// Whether computers other than this one may receive the data.
    bool reachesNetwork = false;

    /// Highest domain id ROS 2 allows (DDS's port numbers end there).
    static constexpr int MaxDomainId = 232;

    /// The domain and configuration of `settings`, with the values of ROS_DOMAIN_ID and
    /// CYCLONEDDS_URI (null when not set). None, with *error naming the problem, for a domain
    /// outside 0 to 232 or a ROS_DOMAIN_ID that is not such a number.
    static std::optional<Ros2DomainConfig> make(const Ros2Settings& settings, const char* rosDomainId,
                                                const char* cycloneUri, std::string* error);
    /// The same with the process's environment.
    static std::optional<Ros2DomainConfig> fromEnvironment(const Ros2Settings& settings, std::string* error);
};

} // namespace Kestrion::Ros2
