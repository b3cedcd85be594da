#pragma once

#include "host/ros2/Ros2Diagnostics.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Kestrion::Ros2 {

struct Ros2DomainConfig;
struct Ros2FrameContent;
struct Ros2Settings;

/// The DDS side of a publisher: a participant in the domain, a writer per topic with ROS 2's QoS
/// and XCDR1, the ROS 2 messages built from their content and written. Used by the publisher's
/// own thread only, except for the wake-up call that its writers' match listeners make (on a DDS
/// thread) when a subscriber comes or goes.
class Ros2Participant {
public:
    /// Joins the domain; null (and *error) when DDS refuses the configuration or the domain.
    static std::unique_ptr<Ros2Participant> create(const Ros2DomainConfig& domain,
                                                   const Ros2Settings& settings,
                                                   std::function<void()> matchesChanged, std::string* error);
    ~Ros2Participant();
    Ros2Participant(const Ros2Participant&) = delete;
    Ros2Participant& operator=(const Ros2Participant&) = delete;

    /// Whether any subscriber is matched on any topic (a plain load: cheap from any thread).
    bool anyMatched() const;
    /// Subscribers (distinct participants) matched on any topic, counted anew.
    std::size_t countSubscribers();

    /// Creates the pose topics of tools not seen before, so that subscribers can match them.
    void addTools(const std::vector<std::string>& tools);
    /// Writes the frame's messages to the topics with a matched subscriber; true when any was.
    bool write(const Ros2FrameContent& content);
    /// The subscribers matched on /diagnostics.
    std::size_t diagnosticsMatched() const;
    void writeDiagnostics(const std::vector<Ros2Diagnostics::Status>& statuses, std::uint64_t stampUS);
    /// Waits (bounded) until the reliable topics' subscribers acknowledged what was written.
    void waitForAcknowledgements(double seconds);

private:
    struct Impl;
    explicit Ros2Participant(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_impl;
};

} // namespace Kestrion::Ros2
