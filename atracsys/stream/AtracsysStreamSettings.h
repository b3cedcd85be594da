#pragma once

#include "atracsys/stream/AtracsysTrackingStreamBase.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Kestrion {
class InstrumentNames;
class Properties;
} // namespace Kestrion

namespace Kestrion::SpryTrack {

class AtracsysRecorder;
class AtracsysTrackingStream;

/// The tracking stream's settings and their workspace keys: what `configure` reads and
/// `configuration` writes, in one place. Each value is an atomic: set from any thread (the user
/// interface, a workspace being loaded), read once per frame by the acquisition loop.
///
/// The keys with an effect beyond their value (the integration time of an open camera, the
/// recording, the geometries of "TrackingTargets", the instrument names and the reference) are
/// applied through the stream and its recorder.
class AtracsysStreamSettings {
public:
    /// The wait between acquisition rounds without a pacing setting, and after a failed fetch.
    static constexpr int DefaultFramePacingMs = 10;
    static constexpr double DefaultRegistrationErrorThreshold = 0.5;

    bool startAfterInit() const { return m_startAfterInit.load(); }
    void setStartAfterInit(bool start) { m_startAfterInit = start; }
    bool queryImages() const { return m_queryImages.load(); }
    void setQueryImages(bool query) { m_queryImages = query; }
    AtracsysTrackingStreamBase::FiducialQueryMode fiducialQueryMode() const {
        return m_fiducialQueryMode.load();
    }
    void setFiducialQueryMode(AtracsysTrackingStreamBase::FiducialQueryMode mode) {
        m_fiducialQueryMode = mode;
    }
    double maxFiducialMarkerDistance() const { return m_maxFiducialMarkerDistance.load(); }
    void setMaxFiducialMarkerDistance(double millimetres) { m_maxFiducialMarkerDistance = millimetres; }
    /// Integration time applied at start and written while the device is closed; -1: the
    /// device keeps its own.
    int cachedIntegrationTime() const { return m_imageIntegrationTime.load(); }
    void setCachedIntegrationTime(int microseconds) { m_imageIntegrationTime = microseconds; }
    int framePacingMs() const { return m_framePacingMs.load(); }
    void setFramePacingMs(int milliseconds) { m_framePacingMs = milliseconds < 0 ? 0 : milliseconds; }
    bool reconnect() const { return m_reconnect.load(); }
    void setReconnect(bool reconnect) { m_reconnect = reconnect; }
    std::uint64_t cameraSerial() const { return m_cameraSerial.load(); }
    void setCameraSerial(std::uint64_t serialNumber) { m_cameraSerial = serialNumber; }
    double registrationErrorThreshold() const { return m_registrationErrorThreshold.load(); }
    void setRegistrationErrorThreshold(double millimetres) { m_registrationErrorThreshold = millimetres; }

    /// Reads every key present (the stream's configure, after its registered parameters).
    void configure(const Properties& properties, AtracsysTrackingStream& stream, AtracsysRecorder& recorder);
    /// Writes the keys (the stream's configuration, after its registered parameters), with one
    /// "TrackingTargets" entry per instrument (name, geometry file).
    void configuration(Properties& properties, const AtracsysTrackingStream& stream,
                       const std::vector<std::pair<std::string, std::string>>& targets) const;
    /// The keys written only when set (Configurable::optionalParameterNames).
    static std::vector<std::string> optionalKeys();

    /// The value of the key "instrumentNames" ("atracsys-1000=Stylus;atracsys-1001=Reference")
    /// and back. A pair without "=", an empty id or a name InstrumentNames refuses is logged with
    /// the reason and left out; the others are kept.
    static InstrumentNames parseInstrumentNames(const std::string& text);
    static std::string instrumentNamesText(const InstrumentNames& names);

private:
    std::atomic<bool> m_startAfterInit{false};
    std::atomic<bool> m_queryImages{false};
    std::atomic<AtracsysTrackingStreamBase::FiducialQueryMode> m_fiducialQueryMode{
        AtracsysTrackingStreamBase::NoFiducials};
    std::atomic<double> m_maxFiducialMarkerDistance{100.0};
    std::atomic<int> m_imageIntegrationTime{-1};
    std::atomic<int> m_framePacingMs{DefaultFramePacingMs};
    std::atomic<bool> m_reconnect{false};
    std::atomic<std::uint64_t> m_cameraSerial{0};
    std::atomic<double> m_registrationErrorThreshold{DefaultRegistrationErrorThreshold};
};

} // namespace Kestrion::SpryTrack
