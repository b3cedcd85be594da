#pragma once

#include "simulator/src/FrameData.h"
#include "simulator/src/FrameTruth.h"
#include "simulator/src/ImageRenderer.h"
#include "simulator/src/Random.h"
#include "simulator/src/SceneDescription.h"
#include "simulator/src/SensorImage.h"
#include "simulator/src/StereoCamera.h"
#include "simulator/src/StereoMatcher.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace Kestrion::Simulator {

/// Device settings that change what a frame contains, read from the options for each frame.
struct ProductionSettings {
    bool irStrobe = true;
    double epipolarTolerancePx = 2.0;
    int integrationTimeUS = 200;
};

/// Makes the measurement of one frame of one device: true fiducials from the scene's markers and
/// strays, projected into both cameras with noise, detected as blobs, paired across the cameras
/// by the epipolar constraint and triangulated. All randomness comes from the scene seed, the
/// device serial and the frame index, so a frame's content does not depend on when or how often
/// it is fetched.
class FrameProducer {
public:
    FrameProducer(const DeviceModel& model, std::shared_ptr<const SceneDescription> scene,
                  std::uint64_t serial);

    /// Fills `frame` (everything but the images) and `truth` for frame `index`; its timestamp is
    /// the device's own time of the frame (µs since the device started).
    void produce(std::uint64_t index, const ProductionSettings& settings, FrameData& frame,
                 FrameTruth& truth);
    /// Draws both images of the frame last produced into a caller's record.
    void drawImages(const ProductionSettings& settings, SensorImage& left, SensorImage& right);

    const DeviceModel& model() const { return m_model; }
    const SceneDescription& scene() const { return *m_scene; }

private:
    struct Detection {
        Blob blob;
        int source = -1; ///< Index into m_sources.
        ftkRawData raw{};
    };
    struct Source {
        Eigen::Vector3d position;
        int marker = -1; ///< -1 for a stray.
        int fiducial = -1;
        bool hiddenLeft = false;
        bool hiddenRight = false;
    };

    void collectSources(double timeS, FrameTruth& truth);
    void detect(StereoCamera::Side side, std::vector<Detection>& detections);
    void pairAndTriangulate(const ProductionSettings& settings, FrameData& frame, FrameTruth& truth);

    DeviceModel m_model;
    std::shared_ptr<const SceneDescription> m_scene;
    StereoCamera m_camera;
    StereoMatcher m_stereo;
    ImageRenderer m_renderer;
    std::uint64_t m_seed;
    Random m_random;

    // Scratch reused from frame to frame.
    std::vector<Source> m_sources;
    std::vector<Detection> m_detections[2];
    std::vector<Blob> m_blobs[2];
    std::vector<StereoMatcher::Result> m_pairs;
};

} // namespace Kestrion::Simulator
