#include "atracsys/plugin/AtracsysReplayAlgorithm.h"

#include "atracsys/device/AtracsysReplayDevice.h"

#include "host/core/Log.h"
#include "host/core/Properties.h"

namespace Kestrion::SpryTrack {

namespace {
constexpr const char* Category = "AtracsysReplayAlgorithm";
}

void AtracsysReplayAlgorithm::configure(const Properties* properties) {
    Algorithm::configure(properties);
    if (!properties)
        return;
    m_file = properties->param("File", m_file);
    m_matchMarkers = properties->param("Match markers", m_matchMarkers);
}

void AtracsysReplayAlgorithm::configuration(Properties* properties) const {
    Algorithm::configuration(properties);
    if (!properties)
        return;
    properties->setParam("File", m_file);
    properties->setParam("Match markers", m_matchMarkers);
    properties->setParam("Replaying", m_replaying);
    properties->setParam("Error", m_error);
}

void AtracsysReplayAlgorithm::compute() {
    m_error.clear();
    m_replaying = !m_file.empty() && AtracsysReplayDevice::load(m_file, m_matchMarkers, m_error);
    if (m_file.empty())
        m_error = "no recording file given";
    setStatus(m_replaying ? Success : Error);
    if (m_replaying)
        KESTRION_LOG_INFO(Category, "The camera replays the recording " << m_file);
    else
        KESTRION_LOG_ERROR(Category,
                           "Cannot replay " << (m_file.empty() ? "a recording" : m_file) << ": " << m_error);
}

} // namespace Kestrion::SpryTrack
