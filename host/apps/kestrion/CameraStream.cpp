#include "host/apps/kestrion/CameraStream.h"

#include "host/apps/kestrion/TrackConfiguration.h"
#include "host/core/Algorithm.h"
#include "host/core/Log.h"
#include "host/core/Properties.h"
#include "host/lib/FactoryRegistry.h"
#include "host/stream/StreamAlgorithm.h"
#include "host/stream/TrackingStream.h"
#include "host/stream/connection/CameraSelection.h"

#include <string>
#include <vector>

namespace Kestrion::Cli {

namespace {

/// Whether the camera driver works and lists no camera. The open that failed showed its reasons
/// already: the listing is done with the console quiet, so that a failing driver is not reported
/// twice.
bool noCameraConnected(TrackingStream& stream) {
    const auto* cameras = dynamic_cast<const CameraSelection*>(&stream);
    if (!cameras)
        return false;
    std::string error;
    Log::setConsoleEnabled(false);
    const std::vector<ConnectedCamera> connected = cameras->connectedCameras(&error);
    Log::setConsoleEnabled(true);
    return connected.empty() && error.empty();
}

} // namespace

std::string geometryLoadReason(const std::vector<LogRecord>& errors, const std::string& path) {
    // The stream ends the lines about a file with this one, which only repeats the failure.
    const std::string repeat = "Cannot load geometry from file ";
    std::vector<const LogRecord*> sinceLastFile;
    for (const auto& record : errors) {
        if (record.message == repeat + path)
            return sinceLastFile.empty() ? "" : sinceLastFile.front()->message;
        if (record.message.rfind(repeat, 0) == 0)
            sinceLastFile.clear();
        else
            sinceLastFile.push_back(&record);
    }
    for (const auto& record : errors)
        if (record.message.find(path + ":") != std::string::npos)
            return record.message;
    return "";
}

CameraStream::CameraStream(const Properties& settings)
    : m_algorithm(FactoryRegistry::instance().createAlgorithm(TrackConfiguration::AlgorithmId)) {
    if (!m_algorithm)
        return;
    m_algorithm->configure(&settings);
    m_algorithm->compute();
    auto* streamAlgorithm = dynamic_cast<StreamAlgorithm*>(m_algorithm.get());
    m_stream = streamAlgorithm ? dynamic_cast<TrackingStream*>(streamAlgorithm->outputStream()) : nullptr;
    if (!m_stream)
        return;
    const bool openWanted = settings.param("open", false);
    if (m_algorithm->status() == Algorithm::Success && m_stream->currentState() == Stream::State::Open)
        m_outcome = Outcome::Opened;
    else if (!openWanted && m_algorithm->status() == Algorithm::Success)
        m_outcome = Outcome::Closed;
    else
        m_outcome = noCameraConnected(*m_stream) ? Outcome::NoCamera : Outcome::OpenFailed;
}

CameraStream::~CameraStream() = default;

void CameraStream::release() {
    m_stream = nullptr;
    m_algorithm.reset();
}

} // namespace Kestrion::Cli
