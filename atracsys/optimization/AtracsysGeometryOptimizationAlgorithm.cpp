#include "atracsys/optimization/AtracsysGeometryOptimizationAlgorithm.h"

#include "atracsys/stream/AtracsysTrackingStreamBase.h"
#include "host/core/Log.h"
#include "host/core/Math.h"
#include "host/stream/CompoundStreamData.h"
#include "host/stream/TrackingInstrumentFiducialsData.h"
#include "host/stream/TrackingStreamData.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

namespace Kestrion {

namespace {

const char* const kOptimizationCategory = "OptimizationGeometryAlgorithm";
const char* const kMatchingCategory = "AtracsysTrackingController";
const char* const kOptimizeCategory = "OptimizeGeometryAlgorithm";
const char* const kAlgorithmCategory = "AtracsysGeometryOptimizationAlgorithm";

// A fiducial belongs to slot j when it lies closer than this to slot j of the last recorded frame
// (millimetres).
constexpr double kSlotRadius = 15.0;
// Frames whose error is above this are not recorded (millimetres).
constexpr double kMaxRecordedFrameError = 100.0;
// Below this quality (a registration error of 2 mm) the marker is not seen well enough.
constexpr double kMinQuality = 0.8;
// Frames for which compute() reserves room before recording.
constexpr int kReservedFrames = 10000;
// How often compute() updates the progress while recording.
constexpr std::chrono::milliseconds kProgressInterval{50};

// Two inter-fiducial distances match when they differ by less than this (millimetres).
constexpr double kDistanceTolerance = 1.2;

// OptimizerNL settings of the nonlinear mode: BOBYQA (derivative free, the cost has no gradient),
// relative step tolerance 5e-05, first steps of 1 unit (0.01 mm at the optimisation scale), quiet,
// minimising, at most 1000 evaluations per run.
constexpr int kOptimizerMethod = 34;
constexpr double kOptimizerTolerance = 5e-05;
constexpr double kOptimizerInitialStep = 1.0;
constexpr int kOptimizerVerbosity = 0;
constexpr int kOptimizerMinimize = 1;
constexpr int kOptimizerMaxEvaluations = 1000;

// True when every distance from points[i] to another point of `points` lies within the tolerance
// of some distance in `distances`.
bool distancesFound(const std::vector<Eigen::Vector3d>& points, std::size_t i,
                    const std::vector<double>& distances) {
    for (std::size_t other = 0; other < points.size(); ++other) {
        if (other == i)
            continue;
        const double d = (points[i] - points[other]).norm();
        bool found = false;
        for (double reference : distances) {
            if (std::abs(d - reference) < kDistanceTolerance) {
                found = true;
                break;
            }
        }
        if (!found)
            return false;
    }
    return true;
}

void logPoints(const std::string& title, const std::vector<Eigen::Vector3d>& points, double divisor = 1.0) {
    KESTRION_LOG_DEBUG(kOptimizationCategory, title);
    for (const Eigen::Vector3d& p : points)
        KESTRION_LOG_DEBUG(kOptimizationCategory, (p / divisor).transpose());
}

} // namespace

AtracsysGeometryOptimizationAlgorithm::AtracsysGeometryOptimizationAlgorithm(
    AtracsysTrackingStreamBase* stream)
    : m_stream(stream) {
    // Connected for the algorithm's whole life; frames are ignored unless compute() is recording.
    if (m_stream)
        m_connection = m_stream->signalStreamData.connect(
            [this](std::shared_ptr<const StreamData> data) { onStreamData(std::move(data)); });
}

AtracsysGeometryOptimizationAlgorithm::~AtracsysGeometryOptimizationAlgorithm() {
    // Waits for a frame being handled on the stream's thread before the members go.
    m_connection.disconnect();
}

void AtracsysGeometryOptimizationAlgorithm::compute() {
    {
        std::lock_guard<std::mutex> lock(m_recordingMutex);
        m_recording.store(false);
        // Room for the usual recording sizes only: a count far beyond them (recording until the
        // user cancels) must not reserve memory for frames that never come.
        m_frames.clear(static_cast<std::size_t>(std::clamp(m_recordedFrames.value(), 0, kReservedFrames)));
        m_recordedCount.store(0);
    }
    {
        std::lock_guard<std::mutex> lock(m_resultMutex);
        m_optimizedCoordinates.clear();
    }

    const std::string id = m_geometryId.value();
    // Written while the flag is clear, so onStreamData (which reads them only while it is set)
    // never sees them change.
    m_originalCoordinates = m_stream ? m_stream->geometryCoordinates(id) : std::vector<Eigen::Vector3d>{};
    if (m_originalCoordinates.empty()) {
        KESTRION_LOG_ERROR(kAlgorithmCategory, "Original coordinates could not be retrieved.");
        setStatus(Error);
        return;
    }
    KESTRION_LOG_WARN(kOptimizeCategory,
                      "Optimize marker with " << m_originalCoordinates.size() << " fiducials.");
    m_recordingId = id;
    m_targetFrames = m_recordedFrames.value();

    ProgressTask task = addProgressTask(m_targetFrames, "Record geometry...");
    {
        std::unique_lock<std::mutex> lock(m_recordingMutex);
        m_recording.store(m_targetFrames > 0);
        while (m_recording.load()) {
            task.setProgress(m_recordedCount.load());
            if (task.wasCanceled()) {
                // Ends the recording early; the frames recorded so far are optimised.
                m_recording.store(false);
                break;
            }
            // Woken at once when onStreamData records the last frame.
            m_recordingDone.wait_for(lock, kProgressInterval, [this] { return !m_recording.load(); });
        }
        // The lock is held here: no frame is being recorded, and none will be until the next
        // compute(), so the solve reads the recording without it.
    }
    task.setProgress(m_recordedCount.load());
    task.setDescription("Optimize...");

    std::vector<Eigen::Vector3d> result = runGeometryOptimization();
    setStatus(result.empty() ? Error : Success);
    std::lock_guard<std::mutex> lock(m_resultMutex);
    m_optimizedCoordinates = std::move(result);
}

void AtracsysGeometryOptimizationAlgorithm::onStreamData(std::shared_ptr<const StreamData> data) {
    if (!m_recording.load())
        return;
    // Held for the whole intake: compute() clears the flag under it, so it never ends the
    // recording in the middle of a frame being appended.
    std::lock_guard<std::mutex> lock(m_recordingMutex);
    if (!m_recording.load())
        return;

    const auto tracking = findStreamData<TrackingStreamData>(data);
    if (!tracking || tracking->numInstruments(true) == 0) {
        KESTRION_LOG_ERROR(kOptimizationCategory,
                           "Optimization requires at least one active tracking instrument.");
        return;
    }
    const auto* fiducials = tracking->component<TrackingInstrumentFiducialsData>();
    if (!fiducials || !fiducials->hasQualities()) {
        KESTRION_LOG_ERROR(kOptimizationCategory, "TrackingStream does not have valid fiducials raw data.");
        return;
    }
    const TrackingInstrument* instrument = tracking->instrument(m_recordingId);
    if (!instrument || !instrument->active) {
        KESTRION_LOG_ERROR(kOptimizationCategory, m_recordingId << " not found in active instruments.");
        return;
    }
    if (!(instrument->quality > kMinQuality)) {
        KESTRION_LOG_ERROR(kOptimizeCategory,
                           "Instrument needs to be visible during recording all the time.");
        return;
    }
    if (fiducials->size() != m_originalCoordinates.size()) {
        KESTRION_LOG_WARN(kOptimizeCategory, "Number of fiducial do not match : "
                                                 << fiducials->size() << " in the frame, "
                                                 << m_originalCoordinates.size() << " in the geometry");
        return;
    }

    const auto& errors = fiducials->triangulationErrors();
    const std::size_t found = m_frames.assignSlots(fiducials->positions(), errors, kSlotRadius, m_slotPoints,
                                                   m_slotErrors, m_slotFilled);
    // The frame's error is that of its worst fiducial.
    const double frameError = errors.empty() ? 0.0 : *std::max_element(errors.begin(), errors.end());
    if (frameError > kMaxRecordedFrameError) {
        KESTRION_LOG_WARN(kOptimizeCategory,
                          "Triangulation error too big : " << frameError << " (skip data)");
        return;
    }
    if (found != m_slotPoints.size()) {
        KESTRION_LOG_WARN(kOptimizeCategory, "Not all markers found : " << found);
        return;
    }

    m_frames.append(m_slotPoints, frameError, m_slotErrors);
    m_recordedCount.store(static_cast<int>(m_frames.size()));
    if (static_cast<int>(m_frames.size()) >= m_targetFrames) {
        m_recording.store(false);
        m_recordingDone.notify_all();
    }
}

bool AtracsysGeometryOptimizationAlgorithm::createCompatible(const DataList&, Algorithm** algorithm) {
    if (algorithm)
        *algorithm = nullptr;
    return false;
}

std::vector<Eigen::Vector3d> AtracsysGeometryOptimizationAlgorithm::optimizedCoordinates() const {
    std::lock_guard<std::mutex> lock(m_resultMutex);
    return m_optimizedCoordinates;
}

std::vector<Eigen::Vector3d>
AtracsysGeometryOptimizationAlgorithm::rearrangeCoordinates(const std::vector<Eigen::Vector3d>& reference,
                                                            const std::vector<Eigen::Vector3d>& points) {
    std::vector<Eigen::Vector3d> result;
    result.reserve(reference.size());
    std::vector<double> distances;
    distances.reserve(reference.size());
    for (std::size_t k = 0; k < reference.size(); ++k) {
        distances.clear();
        for (std::size_t m = 0; m < reference.size(); ++m)
            if (m != k)
                distances.push_back((reference[k] - reference[m]).norm());

        // The last candidate wins. A clash is reported only when the earlier candidate was not
        // point 0: a first match at index 0 followed by another one passes silently.
        int chosen = -1;
        for (std::size_t i = 0; i < points.size(); ++i) {
            if (!distancesFound(points, i, distances))
                continue;
            if (chosen > 0)
                KESTRION_LOG_ERROR(kMatchingCategory,
                                   "Ambiguous distances : no 1:1 matching of distances possible");
            chosen = static_cast<int>(i);
        }
        if (chosen < 0) {
            KESTRION_LOG_ERROR(kMatchingCategory, "Distance not found");
            return {};
        }
        result.push_back(points[static_cast<std::size_t>(chosen)]);
    }
    return result;
}

std::shared_ptr<OptimizerNL> AtracsysGeometryOptimizationAlgorithm::createDefaultOptimizer() const {
    return std::make_shared<OptimizerNL>(static_cast<int>(3 * m_originalCoordinates.size()), kOptimizerMethod,
                                         nullptr, std::vector<std::string>{}, kOptimizerTolerance, true,
                                         kOptimizerInitialStep, kOptimizerVerbosity, kOptimizerMinimize);
}

std::vector<Eigen::Vector3d> AtracsysGeometryOptimizationAlgorithm::runGeometryOptimization() {
    if (m_frames.empty())
        return {};
    if (m_frames.size() == 1)
        return place(m_frames.frames().front());

    logOriginalGeometry();

    std::vector<Eigen::Vector3d> result;
    switch (m_optimizationMode.value()) {
    case BestFrame:
        result = bestFramePoints();
        break;
    case WeightedAverage:
        result = weightedAverage();
        break;
    case NonlinearOptimization:
    default:
        result = nonlinearOptimization();
        break;
    }

    // A failed matching leaves the list empty; it is still placed (a no-op) and logged.
    result = place(rearrangeCoordinates(m_originalCoordinates, result));
    logPoints("Final geometry after optimization", result);
    return result;
}

void AtracsysGeometryOptimizationAlgorithm::logOriginalGeometry() const {
    KESTRION_LOG_DEBUG(kOptimizationCategory, "Geometry before optimization");
    for (std::size_t i = 0; i < m_originalCoordinates.size(); ++i)
        for (std::size_t j = i + 1; j < m_originalCoordinates.size(); ++j)
            KESTRION_LOG_DEBUG(kOptimizationCategory,
                               "Distance " << i << " - " << j << " : "
                                           << (m_originalCoordinates[i] - m_originalCoordinates[j]).norm());
}

std::vector<Eigen::Vector3d> AtracsysGeometryOptimizationAlgorithm::bestFramePoints() const {
    return m_frames.frames()[m_frames.bestFrame()];
}

std::vector<Eigen::Vector3d> AtracsysGeometryOptimizationAlgorithm::weightedAverage() const {
    const auto& frames = m_frames.frames();
    const auto& frameErrors = m_frames.frameErrors();
    const auto& fiducialErrors = m_frames.fiducialErrors();
    const std::size_t best = m_frames.bestFrame();
    const auto& reference = frames[best];
    const auto& referenceErrors = fiducialErrors[best];

    std::vector<Eigen::Vector3d> sum(reference.size(), Eigen::Vector3d::Zero());
    double total = 0.0;
    std::vector<double> weights;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        if (frameErrors[i] > kMaxUsedFrameError)
            continue;
        weights.assign(reference.size(), 0.0);
        for (std::size_t j = 0; j < reference.size() && j < fiducialErrors[i].size(); ++j)
            weights[j] = 1.0 / (referenceErrors[j] * fiducialErrors[i][j]);
        double rms = 0.0;
        const auto transform = Math::fitRigidTransform(frames[i], reference, weights, &rms, false);
        // A frame that cannot be aligned (a fiducial error of 0 gives an infinite weight, or the
        // points are degenerate; the fit logs why) is left out of the average.
        if (!transform)
            continue;
        // Each frame counts with its own error as weight, not with its inverse.
        for (std::size_t j = 0; j < sum.size(); ++j)
            sum[j] += frameErrors[i] * Math::transformPointAffine(*transform, frames[i][j]);
        total += frameErrors[i];
    }
    // With no usable frame the total is 0 and the points are not finite; the distance matching
    // that follows then fails and the result is empty.
    for (Eigen::Vector3d& p : sum)
        p /= total;
    return sum;
}

std::vector<Eigen::Vector3d> AtracsysGeometryOptimizationAlgorithm::nonlinearOptimization() {
    const std::size_t fiducials = m_originalCoordinates.size();
    const int dimension = static_cast<int>(3 * fiducials);
    if (!optimizer() || optimizer()->dimension() != dimension)
        setOptimizer(createDefaultOptimizer());

    m_frames.scale(kOptimizationScale);

    int used = 0;
    for (double error : m_frames.frameErrors())
        if (error <= kMaxUsedFrameError)
            ++used;
    KESTRION_LOG_DEBUG(kOptimizationCategory, "Number of used frames for optimization : " << used);

    const auto& start = m_frames.frames()[m_frames.bestFrame()];
    std::vector<double> x;
    x.reserve(3 * start.size());
    for (const Eigen::Vector3d& p : start) {
        x.push_back(p.x());
        x.push_back(p.y());
        x.push_back(p.z());
    }
    logPoints("Initial points : ", start, kOptimizationScale);

    // Sized here so that evaluate() allocates nothing.
    m_candidate.resize(fiducials);
    m_weights.resize(fiducials);

    OptimizerNL& nl = *optimizer();
    nl.setCostFunction(this);
    nl.setMaxEvaluationsEnabled(true);
    nl.setMaxEvaluations(kOptimizerMaxEvaluations);
    if (nl.optimize(x) == 0)
        KESTRION_LOG_ERROR(kOptimizationCategory, "Optimization failed");

    std::vector<Eigen::Vector3d> result(x.size() / 3);
    for (std::size_t i = 0; i < result.size(); ++i)
        result[i] = Eigen::Vector3d(x[3 * i], x[3 * i + 1], x[3 * i + 2]) / kOptimizationScale;
    logPoints("Optimized points: ", result);
    return result;
}

double AtracsysGeometryOptimizationAlgorithm::evaluate(int n, const double* x, double* /*gradient*/) {
    const std::size_t count = n > 0 ? static_cast<std::size_t>(n) / 3 : 0;
    m_candidate.resize(count);
    for (std::size_t i = 0; i < count; ++i)
        m_candidate[i] = Eigen::Vector3d(x[3 * i], x[3 * i + 1], x[3 * i + 2]);

    const auto& frames = m_frames.frames();
    const auto& frameErrors = m_frames.frameErrors();
    const auto& fiducialErrors = m_frames.fiducialErrors();
    double sum = 0.0;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        if (frameErrors[i] > kMaxUsedFrameError)
            continue;
        const auto& errors = fiducialErrors[i];
        m_weights.resize(errors.size());
        bool finite = true;
        for (std::size_t j = 0; j < errors.size(); ++j) {
            m_weights[j] = 1.0 / (errors[j] * errors[j]);
            finite = finite && std::isfinite(m_weights[j]);
        }
        // A fiducial error of 0 would give an infinite weight, which the fit refuses: such a frame
        // is left out here, before the fit, so that no evaluation logs. A frame whose fit fails for
        // another reason (degenerate points) is left out as well.
        if (!finite)
            continue;
        double rms = 0.0;
        if (Math::fitRigidTransform(frames[i], m_candidate, m_weights, &rms))
            sum += rms;
    }
    return 0.001 * sum;
}

std::vector<Eigen::Vector3d>
AtracsysGeometryOptimizationAlgorithm::place(std::vector<Eigen::Vector3d> points) const {
    if (points.empty())
        return points;
    if (m_keepCoordinateLocation.value()) {
        const auto transform = Math::fitRigidTransform(points, m_originalCoordinates);
        if (!transform) {
            KESTRION_LOG_ERROR(kOptimizationCategory,
                               "Optimized geometry could not be placed onto the original coordinates");
            return {};
        }
        for (Eigen::Vector3d& p : points)
            p = Math::transformPointAffine(*transform, p);
        return points;
    }
    Eigen::Vector3d centroid = Eigen::Vector3d::Zero();
    for (const Eigen::Vector3d& p : points)
        centroid += p;
    centroid /= static_cast<double>(points.size());
    for (Eigen::Vector3d& p : points)
        p -= centroid;
    return points;
}

} // namespace Kestrion
