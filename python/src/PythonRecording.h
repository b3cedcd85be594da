#pragma once

#include "recording/RecordingReader.h"
#include "recording/RecordingTypes.h"

#include "host/stream/TrackingInstrument.h"

#include <memory>
#include <string>
#include <vector>

namespace Kestrion::Python {

class PythonFrame;

/// Reads a session recording (docs/recording-format.md) as the frames a tracking stream gives:
/// a frame per recorded frame, with an instrument per geometry registered on the camera (at the
/// start, or before that frame), its recorded pose and registration error where the camera
/// detected the marker, the raw fiducials, the device's frame counter and timestamp, and the two
/// camera images when they were recorded.
///
/// Instruments are named as the camera stream names them: "atracsys-" and the geometry id, with
/// the geometry file's base name as their name, and their quality is derived from the
/// registration error as the stream does (1 - error / 10 mm, docs/desktop-host.md), so that a
/// recorded frame reads like the live one. What only the live stream computes (the reasons of the
/// instruments' status, tips, poses in a reference's frame) is not in a recording.
///
/// Not thread safe: one thread reads a recording.
class PythonRecording {
public:
    /// Opens the file; throws PythonError (Input) naming the file and the problem.
    explicit PythonRecording(const std::string& path);

    /// The next frame (its images decoded when `images`), null at the end; throws PythonError
    /// (Input) for a damaged frame.
    std::shared_ptr<PythonFrame> next(bool images);

    const Recording::SessionHeader& header() const { return m_reader.header(); }
    std::uint64_t framesRead() const { return m_reader.framesRead(); }
    bool cutShort() const { return m_reader.cutShort(); }
    std::uint64_t framesDropped() const { return m_reader.framesDropped(); }
    const std::string& path() const { return m_path; }

    /// The instrument id of a recorded geometry.
    static std::string instrumentId(std::uint32_t geometryId);

private:
    void addInstrument(const Recording::Geometry& geometry);

    std::string m_path;
    Recording::RecordingReader m_reader;
    Recording::Frame m_frame;
    std::vector<TrackingInstrument> m_instruments;
    std::vector<std::uint32_t> m_geometryIds; // parallel to m_instruments
    std::size_t m_addedSeen = 0;
};

} // namespace Kestrion::Python
