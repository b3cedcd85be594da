#include "host/ros2/Ros2PublisherAlgorithm.h"

#include "host/ros2/Ros2Publisher.h"

namespace Kestrion::Ros2 {

Ros2PublisherAlgorithm::Ros2PublisherAlgorithm() = default;

Ros2PublisherAlgorithm::~Ros2PublisherAlgorithm() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_publisher.reset();
}

void Ros2PublisherAlgorithm::compute() {
    Ros2Settings settings;
    if (m_domain >= 0)
        settings.domainId = m_domain;
    settings.nameSpace = m_nameSpace;
    settings.frameId = m_frame;
    settings.networkInterface = m_networkInterface;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_publisher.reset(); // the old one leaves the domain first
    auto publisher = std::make_unique<Ros2Publisher>(settings);
    std::string error;
    if (!publisher->start(&error)) {
        m_publishing = error;
        setStatus(Error);
        return;
    }
    publisher->serve(m_stream);
    std::string where = "domain " + std::to_string(publisher->domainId()) + ", " + publisher->reach();
    if (publisher->reach() != "loopback only")
        where += std::string(" (") + Ros2Publisher::NetworkWarning + ")";
    m_publishing = where;
    m_publisher = std::move(publisher);
    setStatus(Success);
}

void Ros2PublisherAlgorithm::serve(TrackingStream* stream) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stream = stream;
    if (m_publisher)
        m_publisher->serve(stream);
}

std::size_t Ros2PublisherAlgorithm::subscribers() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_publisher ? m_publisher->subscribers() : 0;
}

int Ros2PublisherAlgorithm::domainId() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_publisher ? m_publisher->domainId() : -1;
}

} // namespace Kestrion::Ros2
