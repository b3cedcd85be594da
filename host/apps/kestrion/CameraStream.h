#pragma once

#include "host/core/LogRecord.h"

#include <memory>
#include <string>
#include <vector>

namespace Kestrion {
class Algorithm;
class Properties;
class TrackingStream;
} // namespace Kestrion

namespace Kestrion::Cli {

/// The camera's tracking stream as every command gets it: the plugin's stream algorithm created
/// by name through the factories (TrackConfiguration::AlgorithmId), configured with the given
/// settings and run, which creates the stream, loads its marker geometries and opens the camera
/// when the settings say "open". The algorithm owns the stream: both go with this object.
class CameraStream {
public:
    /// How the creation went, decided from the algorithm's status, the stream's state and the
    /// cameras its driver lists.
    enum class Outcome {
        Opened,    ///< the stream exists and is open
        Closed,    ///< the stream exists and was not asked to open
        NoStream,  ///< the algorithm is missing or made no tracking stream
        NoCamera,  ///< the open failed and the driver lists no camera at all
        OpenFailed ///< the open failed otherwise (the driver, a chosen camera, a setting)
    };

    explicit CameraStream(const Properties& settings);
    ~CameraStream();
    CameraStream(const CameraStream&) = delete;
    CameraStream& operator=(const CameraStream&) = delete;

    Outcome outcome() const { return m_outcome; }
    /// The stream; null for NoStream.
    TrackingStream* stream() const { return m_stream; }
    /// Destroys the algorithm and its stream (a recorder of the stream finishes its file then).
    void release();

private:
    std::unique_ptr<Algorithm> m_algorithm;
    TrackingStream* m_stream = nullptr;
    Outcome m_outcome = Outcome::NoStream;
};

/// What the user is shown about a geometry file that the stream did not load, from the error
/// lines logged while it loaded (for showing only): the first line the stream logged about that
/// file before saying it could not be loaded, else a line naming the file; "" when none.
std::string geometryLoadReason(const std::vector<LogRecord>& errors, const std::string& path);

} // namespace Kestrion::Cli
