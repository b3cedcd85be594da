#pragma once

#include "host/core/Algorithm.h"
#include "host/core/Parameter.h"

#include <memory>
#include <mutex>
#include <string>

namespace Kestrion {
class TrackingStream;
}

namespace Kestrion::Ros2 {

class Ros2Publisher;

/// The ROS 2 publisher as an algorithm of a workspace, so that a host lists it, shows its settings
/// and, when a saved workspace is opened again, publishes again. Its settings: "domain" (-1, the
/// default: ROS_DOMAIN_ID, else 0), "namespace" ("atracsys"), "frame" ("atracsys_camera") and
/// "networkInterface" (empty, the default: this computer only); "publishing" shows where it
/// publishes once computed ("domain 0, loopback only"), or why not. compute() (re)starts the
/// publisher; the host hands it the stream to publish with serve().
class Ros2PublisherAlgorithm : public Algorithm {
public:
    Ros2PublisherAlgorithm();
    ~Ros2PublisherAlgorithm() override;

    /// Publishes as configured; status Error (and the reason in "publishing") when it cannot.
    void compute() override;
    /// Publishes `stream` (null: none) now, or from compute() on; from any thread but the
    /// stream's worker. The stream must outlive its publishing.
    void serve(TrackingStream* stream);
    /// Subscribers matched now; 0 when not publishing.
    std::size_t subscribers() const;
    /// The domain joined; -1 when not publishing.
    int domainId() const;

private:
    Parameter<int> m_domain{"domain", -1, this};
    Parameter<std::string> m_nameSpace{"namespace", "atracsys", this};
    Parameter<std::string> m_frame{"frame", "atracsys_camera", this};
    Parameter<std::string> m_networkInterface{"networkInterface", "", this};
    Parameter<std::string> m_publishing{"publishing", "not started", this};

    // compute() runs on a host's worker thread, serve() on its GUI thread.
    mutable std::mutex m_mutex;
    std::unique_ptr<Ros2Publisher> m_publisher;
    TrackingStream* m_stream = nullptr;
};

} // namespace Kestrion::Ros2
