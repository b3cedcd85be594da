#include "simulator/src/FrameProducer.h"

#include <algorithm>
#include <cmath>

namespace Kestrion::Simulator {

namespace {

/// Integration time at which a blob's centre reaches full scale.
constexpr double SaturationUS = 150.0;

bool hides(const Occlusion& o, int fiducial, double timeS) {
    if (timeS < o.fromS || timeS >= o.toS) {
        return false;
    }
    return o.fiducials.empty() ||
           std::find(o.fiducials.begin(), o.fiducials.end(), fiducial) != o.fiducials.end();
}

} // namespace

FrameProducer::FrameProducer(const DeviceModel& model, std::shared_ptr<const SceneDescription> scene,
                             std::uint64_t serial)
    : m_model(model)
    , m_scene(std::move(scene))
    , m_camera(model)
    , m_stereo(m_camera, m_model)
    , m_renderer(model.width, model.height, Random::mix(m_scene->seed, serial ^ 0x696d616765ull))
    , m_seed(Random::mix(m_scene->seed, serial)) {}

void FrameProducer::produce(std::uint64_t index, const ProductionSettings& settings, FrameData& frame,
                            FrameTruth& truth) {
    const double timeS = static_cast<double>(index) / m_model.rateHz;
    frame.index = index;
    frame.timestampUS =
        static_cast<std::uint64_t>(std::llround(static_cast<double>(index) * 1e6 / m_model.rateHz));
    frame.width = static_cast<std::uint16_t>(m_model.width);
    frame.height = static_cast<std::uint16_t>(m_model.height);
    frame.hasImages = false;
    truth.index = index;
    truth.timestampUS = frame.timestampUS;
    truth.timeS = timeS;

    m_random.reseed(Random::mix(m_seed, index));
    collectSources(timeS, truth);
    m_detections[StereoCamera::Left].clear();
    m_detections[StereoCamera::Right].clear();
    if (settings.irStrobe) {
        detect(StereoCamera::Left, m_detections[StereoCamera::Left]);
        detect(StereoCamera::Right, m_detections[StereoCamera::Right]);
    }
    for (int side = 0; side < 2; ++side) {
        std::vector<ftkRawData>& raw = side == 0 ? frame.rawLeft : frame.rawRight;
        raw.clear();
        m_blobs[side].clear();
        for (const Detection& d : m_detections[side]) {
            raw.push_back(d.raw);
            m_blobs[side].push_back(d.blob);
        }
    }
    pairAndTriangulate(settings, frame, truth);
}

void FrameProducer::collectSources(double timeS, FrameTruth& truth) {
    const SceneDescription& scene = *m_scene;
    m_sources.clear();
    truth.markers.resize(scene.markers.size());
    for (std::size_t m = 0; m < scene.markers.size(); ++m) {
        const MarkerDescription& marker = scene.markers[m];
        MarkerTruth& t = truth.markers[m];
        const Eigen::Isometry3d pose = marker.motion.poseAt(timeS);
        t.geometryId = marker.geometryId;
        t.rotation = pose.linear();
        t.translationMM = pose.translation();
        t.fiducialsMM.resize(marker.fiducials.size());
        t.detectedMask = 0;
        for (std::size_t i = 0; i < marker.fiducials.size(); ++i) {
            Source s;
            s.position = pose * marker.fiducials[i];
            s.marker = static_cast<int>(m);
            s.fiducial = static_cast<int>(i);
            for (const Occlusion& o : marker.occlusions) {
                if (hides(o, s.fiducial, timeS)) {
                    s.hiddenLeft = s.hiddenLeft || o.left;
                    s.hiddenRight = s.hiddenRight || o.right;
                }
            }
            t.fiducialsMM[i] = s.position;
            m_sources.push_back(s);
        }
    }
    truth.straysMM = scene.strays;
    for (const Eigen::Vector3d& p : scene.strays) {
        Source s;
        s.position = p;
        m_sources.push_back(s);
    }
}

void FrameProducer::detect(StereoCamera::Side side, std::vector<Detection>& detections) {
    const double sigma = m_model.pixelNoise;
    for (std::size_t i = 0; i < m_sources.size(); ++i) {
        const Source& s = m_sources[i];
        Eigen::Vector2d pixel;
        double depth = 0.0;
        // Noise is drawn for every source and camera, seen or not, so that hiding one fiducial
        // does not change the noise of the others.
        const double nx = m_random.gaussian(sigma);
        const double ny = m_random.gaussian(sigma);
        if ((side == StereoCamera::Left ? s.hiddenLeft : s.hiddenRight) ||
            !m_camera.project(side, s.position, pixel, depth)) {
            continue;
        }
        Detection d;
        d.blob.x = pixel.x() + nx;
        d.blob.y = pixel.y() + ny;
        d.blob.radius = 0.5 * m_camera.focalPx() * m_model.fiducialDiameterMM / depth;
        if (d.blob.x < 0.0 || d.blob.y < 0.0 || d.blob.x >= m_model.width || d.blob.y >= m_model.height) {
            continue;
        }
        if (!m_renderer.measure(d.blob, d.raw)) {
            continue;
        }
        d.raw.centerXPixels = static_cast<float>(d.blob.x);
        d.raw.centerYPixels = static_cast<float>(d.blob.y);
        d.source = static_cast<int>(i);
        detections.push_back(d);
    }
    // Blobs come out of the sensor readout in raster order of their top rows.
    std::sort(detections.begin(), detections.end(), [](const Detection& a, const Detection& b) {
        const double ta = a.blob.y - a.blob.radius;
        const double tb = b.blob.y - b.blob.radius;
        return ta != tb ? ta < tb : a.blob.x < b.blob.x;
    });
}

void FrameProducer::pairAndTriangulate(const ProductionSettings& settings, FrameData& frame,
                                       FrameTruth& truth) {
    const std::vector<Detection>& left = m_detections[StereoCamera::Left];
    const std::vector<Detection>& right = m_detections[StereoCamera::Right];
    m_stereo.match(m_blobs[StereoCamera::Left], m_blobs[StereoCamera::Right], settings.epipolarTolerancePx,
                   m_pairs);
    frame.fiducials.clear();
    for (const StereoMatcher::Result& pair : m_pairs) {
        const std::uint32_t l = pair.left;
        const std::uint32_t r = pair.right;
        const Eigen::Vector2d pl(left[l].blob.x, left[l].blob.y);
        const Eigen::Vector2d pr(right[r].blob.x, right[r].blob.y);
        double triangulationError = 0.0;
        const Eigen::Vector3d p = m_camera.triangulate(pl, pr, triangulationError);
        ftk3DFiducial f{};
        ftkStatus status{};
        status.WorkingVolume = (p.z() < m_model.minDepthMM || p.z() > m_model.maxDepthMM) ? 1u : 0u;
        f.status = status;
        f.leftIndex = l;
        f.rightIndex = r;
        f.positionMM =
            ftk3DPoint{static_cast<float>(p.x()), static_cast<float>(p.y()), static_cast<float>(p.z())};
        f.epipolarErrorPixels = static_cast<float>(m_camera.epipolarError(pl, pr));
        f.triangulationErrorMM = static_cast<float>(triangulationError);
        f.probability = 1.0f / static_cast<float>(std::max<std::uint32_t>(1, pair.candidatesOfLeft));
        frame.fiducials.push_back(f);

        const Source& source = m_sources[left[l].source];
        if (source.marker >= 0 && left[l].source == right[r].source && source.fiducial < 32) {
            truth.markers[source.marker].detectedMask |= 1u << source.fiducial;
        }
    }
}

void FrameProducer::drawImages(const ProductionSettings& settings, SensorImage& left, SensorImage& right) {
    const int peak =
        static_cast<int>(std::clamp(255.0 * settings.integrationTimeUS / SaturationUS, 8.0, 255.0));
    m_renderer.draw(StereoCamera::Left, m_blobs[StereoCamera::Left], peak, left);
    m_renderer.draw(StereoCamera::Right, m_blobs[StereoCamera::Right], peak, right);
}

} // namespace Kestrion::Simulator
