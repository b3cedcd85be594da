#pragma once

#include "atracsys/optimization/AtracsysGeometryRecording.h"
#include "host/core/OptimizingAlgorithm.h"
#include "host/core/Parameter.h"
#include "host/core/SignalConnection.h"
#include "host/stream/StreamData.h"

#include <Eigen/Core>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Kestrion {

class AtracsysTrackingStreamBase;

/// Refines the fiducial coordinates of one marker geometry from camera frames.
///
/// compute() records "recordedFrames" frames of the marker "geometryId" from the stream's data
/// (onStreamData, on the stream's thread), then turns them into one set of coordinates according
/// to "optimizationMode" (runGeometryOptimization) and keeps the result for
/// optimizedCoordinates(). In the nonlinear mode the algorithm is the cost function of its
/// OptimizerNL: evaluate() measures how well every good frame fits a candidate geometry.
///
/// A frame is recorded when the marker is tracked with a quality above 0.8 and all of its fiducials
/// are seen. Its error is the largest triangulation error of its fiducials; the per-fiducial
/// errors weight the fits of the average and of the cost function.
///
/// compute() runs on a worker thread and blocks until recording ends (enough frames, or the
/// progress task is cancelled). The other operations are for that same thread, except
/// onStreamData, which the stream calls. Without a stream (null) compute() fails at once.
class AtracsysGeometryOptimizationAlgorithm : public OptimizingAlgorithm {
public:
    enum OptimizationMode : int {
        BestFrame = 0,             ///< the points of the frame with the smallest error
        WeightedAverage = 1,       ///< the good frames aligned on the best one and averaged
        NonlinearOptimization = 2, ///< the geometry that every good frame fits best
    };

    /// Frames with an error above this take no part in the average or the cost function.
    static constexpr double kMaxUsedFrameError = 4.0;
    /// The positions are optimised in units of 1/100 of the recorded units.
    static constexpr double kOptimizationScale = 100.0;

    explicit AtracsysGeometryOptimizationAlgorithm(AtracsysTrackingStreamBase* stream);
    ~AtracsysGeometryOptimizationAlgorithm() override;

    /// Creates nothing from a data list: the algorithm is made for a stream by the markers widget.
    static bool createCompatible(const DataList& data, Algorithm** algorithm);

    void compute() override;

    /// Returns `points` in the order of `reference`, matching each reference point by its
    /// distances to the other points (tolerance 1.2, exclusive). Empty when a reference point
    /// finds no match.
    static std::vector<Eigen::Vector3d> rearrangeCoordinates(const std::vector<Eigen::Vector3d>& reference,
                                                             const std::vector<Eigen::Vector3d>& points);

    /// Turns the recorded frames into the refined coordinates, in the geometry's fiducial order
    /// and placed according to "keepCoordinateLocation". Empty without frames or when matching
    /// the result to the original geometry fails. The nonlinear mode scales the recording by
    /// kOptimizationScale in place.
    std::vector<Eigen::Vector3d> runGeometryOptimization();

    /// The cost of the candidate geometry x (n = 3 x fiducials values, x y z per fiducial): 0.001
    /// times the sum over the good frames of the weighted RMS residual of their rigid fit onto the
    /// candidate. No gradient. Allocates nothing once the buffers are sized.
    double evaluate(int n, const double* x, double* gradient) override;

    /// A new optimiser with this algorithm's settings (dimension 3 x fiducials, BOBYQA,
    /// tolerance 5e-05), not yet attached to a cost function.
    std::shared_ptr<OptimizerNL> createDefaultOptimizer() const;

    /// The result of the last compute().
    std::vector<Eigen::Vector3d> optimizedCoordinates() const;

    /// Receives every data item of the stream; records it while recording is on.
    void onStreamData(std::shared_ptr<const StreamData> data);

    /// The coordinates of the geometry being refined, as fetched by compute().
    const std::vector<Eigen::Vector3d>& originalCoordinates() const { return m_originalCoordinates; }

    std::string geometryId() const { return m_geometryId.value(); }
    void setGeometryId(const std::string& id) { m_geometryId = id; }
    OptimizationMode optimizationMode() const { return m_optimizationMode.value(); }
    void setOptimizationMode(OptimizationMode mode) { m_optimizationMode = mode; }
    bool keepCoordinateLocation() const { return m_keepCoordinateLocation.value(); }
    void setKeepCoordinateLocation(bool keep) { m_keepCoordinateLocation = keep; }
    int recordedFrames() const { return m_recordedFrames.value(); }
    void setRecordedFrames(int frames) { m_recordedFrames = frames; }

    bool isRecording() const { return m_recording.load(); }

protected:
    /// Direct access to the recording and the reference geometry, for a solve without a stream.
    AtracsysGeometryRecording& recording() { return m_frames; }
    void setOriginalCoordinates(std::vector<Eigen::Vector3d> coordinates) {
        m_originalCoordinates = std::move(coordinates);
    }

private:
    std::vector<Eigen::Vector3d> bestFramePoints() const;
    std::vector<Eigen::Vector3d> weightedAverage() const;
    std::vector<Eigen::Vector3d> nonlinearOptimization();
    /// Moves the result onto the original coordinates, or centres it. Empty when that fit fails.
    std::vector<Eigen::Vector3d> place(std::vector<Eigen::Vector3d> points) const;
    void logOriginalGeometry() const;

    Parameter<std::string> m_geometryId{"geometryId", "", this};
    Parameter<OptimizationMode> m_optimizationMode{"optimizationMode", NonlinearOptimization, this};
    Parameter<bool> m_keepCoordinateLocation{"keepCoordinateLocation", true, this};
    Parameter<int> m_recordedFrames{"recordedFrames", 500, this};

    AtracsysTrackingStreamBase* m_stream; // not owned
    SignalConnection m_connection;        // to the stream's data signal

    std::vector<Eigen::Vector3d> m_originalCoordinates;

    // The recording is written by onStreamData on the stream's thread while m_recording is set and
    // read by the solve once it is clear. m_recordingMutex makes clearing the flag wait for a frame
    // being recorded, so the solve never reads a half-appended frame.
    std::atomic<bool> m_recording{false};
    std::mutex m_recordingMutex;
    std::condition_variable m_recordingDone; // signalled when the last frame is in
    AtracsysGeometryRecording m_frames;
    std::atomic<int> m_recordedCount{0}; // frames in m_frames, for the progress display
    // Copies of the parameters for the current recording, set by compute() before it starts.
    std::string m_recordingId;
    int m_targetFrames = 0;

    // Reused per frame by onStreamData (stream's thread only).
    AtracsysGeometryRecording::Points m_slotPoints;
    std::vector<double> m_slotErrors;
    std::vector<char> m_slotFilled;

    // Reused per evaluation by evaluate() (the solving thread only).
    std::vector<Eigen::Vector3d> m_candidate;
    std::vector<double> m_weights;

    mutable std::mutex m_resultMutex; // the result is written by compute() and read by the widget
    std::vector<Eigen::Vector3d> m_optimizedCoordinates;
};

} // namespace Kestrion
