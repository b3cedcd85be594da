#include "host/apps/kestrion/TrackRos2.h"

#include "host/apps/kestrion/TrackOptions.h"
#include "host/ros2/Ros2Names.h"

namespace Kestrion::Cli {

bool TrackRos2::start(const TrackOptions& options, TrackingStream& stream, std::ostream& out,
                      std::string* error) {
    if (!options.ros2)
        return true;
    Ros2::Ros2Settings settings;
    settings.domainId = options.ros2Domain;
    settings.nameSpace = options.ros2Namespace;
    settings.frameId = options.ros2Frame;
    settings.networkInterface = options.ros2Network;
    m_publisher = std::make_unique<Ros2::Ros2Publisher>(settings);
    if (!m_publisher->start(error)) {
        m_publisher.reset();
        return false;
    }
    m_publisher->serve(&stream);
    m_started = true;
    const std::string nameSpace = Ros2::Ros2Names::plainNamespace(settings.nameSpace);
    out << "Publishing ROS 2 on domain " << m_publisher->domainId() << ", " << m_publisher->reach();
    if (m_publisher->reach() != "loopback only")
        out << " (" << Ros2::Ros2Publisher::NetworkWarning << ")";
    out << ": /tf from " << settings.frameId << ", /" << nameSpace << "/<tool>/pose, /" << nameSpace
        << "/fiducials, /diagnostics\n"
        << std::flush;
    return true;
}

void TrackRos2::stop() {
    if (!m_publisher)
        return;
    m_publisher->stop();
    m_published = m_publisher->framesPublished();
    m_skipped = m_publisher->framesSkipped();
    m_publisher.reset();
}

std::string TrackRos2::counts() const {
    const std::uint64_t published = m_publisher ? m_publisher->framesPublished() : m_published;
    const std::uint64_t skipped = m_publisher ? m_publisher->framesSkipped() : m_skipped;
    return std::to_string(published) + " frame(s) published, " + std::to_string(skipped) + " skipped";
}

std::string TrackRos2::table() const {
    if (!m_publisher)
        return "";
    return "ROS 2 domain " + std::to_string(m_publisher->domainId()) + " (" + m_publisher->reach() +
           "): publishing, " + std::to_string(m_publisher->subscribers()) + " subscriber(s), " + counts() +
           "\n";
}

std::string TrackRos2::summary() const {
    return m_started ? "ROS 2: " + counts() + "\n" : "";
}

} // namespace Kestrion::Cli
