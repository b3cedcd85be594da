#pragma once

#include "host/core/Algorithm.h"

#include <string>

namespace Kestrion::SpryTrack {

/// Makes a recording the camera ("Atracsys.ReplayRecording"), for the desktop host's "Open
/// Recording...": a command's algorithm, not one the users' algorithm list offers.
///
/// - input: "File" (the recording) and "Match markers" (bool, default false: the markers as
///   recorded; true: found again with the geometries registered now);
/// - output, after compute(), in configuration(): "Replaying" (bool) and "Error" (why not,
///   naming the file; empty when replaying).
///
/// Streams opened afterwards play the recording; a stream open now is closed and opened again
/// to play it (the host does that).
class AtracsysReplayAlgorithm : public Algorithm {
public:
    void configure(const Properties* properties) override;
    void configuration(Properties* properties) const override;
    void compute() override;

private:
    std::string m_file;
    bool m_matchMarkers = false;
    bool m_replaying = false;
    std::string m_error;
};

} // namespace Kestrion::SpryTrack
