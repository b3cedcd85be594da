#pragma once

#include "host/core/Configurable.h"
#include "host/core/SharedImage.h"
#include "host/core/Signal.h"
#include "host/stream/StreamGroup.h"
#include "host/stream/TrackingStream.h"

#include <Eigen/Core>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Kestrion {

/// What one camera saw in a frame fetched with images.
struct AtracsysSingleCameraUpdate {
    /// The camera's 8-bit grey image of the frame (a copy of the frame's pixels); empty when no
    /// image was fetched.
    std::shared_ptr<SharedImage> image;
    /// Per selected 3D fiducial (see FiducialQueryMode), the centre of its detection in this
    /// camera, in pixels.
    std::vector<Eigen::Vector2d> fiducials;
    /// Width and height in pixels of those detections, parallel to `fiducials`.
    std::vector<Eigen::Vector2d> fiducialSizes;
};

/// Payload of AtracsysTrackingStreamBase::signalAtracsysUpdate: both cameras of one frame.
struct AtracsysUpdate {
    AtracsysSingleCameraUpdate left;
    AtracsysSingleCameraUpdate right;
};

/// The tracking stream of an Atracsys camera as the user interface and the geometry tools see it,
/// whatever the device behind it: its settings, its marker geometries and the camera update
/// signal. Images are offered as the substreams "Camera (left)" and "Camera (right)" of its group.
/// The stream runs in the host's worker thread mode: doWork is called again and again while it
/// runs.
class AtracsysTrackingStreamBase : public TrackingStream,
                                   public Configurable,
                                   public StreamGroup<AtracsysTrackingStreamBase> {
public:
    /// Which raw 3D fiducials of a frame go out with its tracking data (value = the index of the
    /// choice in the stream's control panel).
    enum FiducialQueryMode : std::int32_t {
        /// None.
        NoFiducials = 0,
        /// Only fiducials that the camera assigned to a detected marker.
        MarkerFiducials = 1,
        /// Every fiducial within maxFiducialMarkerDistance() of the translation of a detected marker.
        FiducialsNearMarkers = 2,
        /// Every fiducial of the frame.
        AllFiducials = 3,
    };

    explicit AtracsysTrackingStreamBase(std::string name);
    ~AtracsysTrackingStreamBase() override;

    int threadingMode() const override { return WorkerThreadMode; }

    /// Camera integration time in microseconds; -1 when it cannot be read.
    virtual int imageIntegrationTime() const = 0;
    virtual void setImageIntegrationTime(int microseconds) = 0;
    /// Start streaming as soon as the stream is opened.
    virtual bool startAfterInit() const = 0;
    virtual void setStartAfterInit(bool start) = 0;
    /// Fetch the left and right camera images with every frame (takes effect at the next open).
    virtual bool queryImages() const = 0;
    virtual void setQueryImages(bool query) = 0;
    /// Which raw fiducials to attach to the output (takes effect at the next frame).
    virtual void setFiducialQueryMode(FiducialQueryMode mode) = 0;
    virtual FiducialQueryMode fiducialQueryMode() = 0;
    /// Radius of FiducialsNearMarkers, millimetres.
    virtual void setMaxFiducialMarkerDistance(double millimetres) = 0;
    virtual double maxFiducialMarkerDistance() const = 0;
    /// The device library is open and a device selected.
    virtual bool isInitialized() const = 0;
    /// Loads a marker geometry INI file and creates an instrument named `name` for it.
    virtual bool addGeometry(const std::string& name, const std::string& path) = 0;
    /// The fiducial coordinates (millimetres, file order) of an instrument's geometry; empty when
    /// there is no such instrument.
    virtual std::vector<Eigen::Vector3d> geometryCoordinates(const std::string& instrumentId) = 0;
    /// The same, for the host's views of any tracking stream.
    std::vector<Eigen::Vector3d> instrumentGeometry(const std::string& instrumentId) override {
        return geometryCoordinates(instrumentId);
    }
    /// Clears an instrument's geometry on the device and removes the instrument.
    virtual bool removeGeometry(const std::string& instrumentId) = 0;
    /// Loads an instrument's geometry again from `path` under its name, whether or not the stream
    /// tracks (off the camera first when it is on it).
    virtual bool reloadGeometry(const std::string& instrumentId, const std::string& name,
                                const std::string& path) = 0;

    /// Emitted on the worker thread once per frame fetched with images. Receivers get the update
    /// only for the time of the call: they copy what they keep and return quickly (a slow view
    /// connects through a SignalDebouncer).
    SignalImpl<false, AtracsysUpdate&> signalAtracsysUpdate;
};

} // namespace Kestrion
