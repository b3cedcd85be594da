#pragma once

#include "host/igtl/IgtlBufferPool.h"

#include <igtlImageMessage.h>
#include <igtlPointMessage.h>
#include <igtlStatusMessage.h>
#include <igtlTrackingDataMessage.h>
#include <igtlTransformMessage.h>

#include <Eigen/Core>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Kestrion {
class ImageStreamData;
class InstrumentNames;
class TrackingStreamData;
} // namespace Kestrion

namespace Kestrion::Igtl {

/// Packed messages, shared by every client they go to; never changed once handed out.
using Packet = std::shared_ptr<const std::vector<std::uint8_t>>;

/// What the camera is doing, as the server reports it in the camera's STATUS message.
enum class CameraState {
    Tracking,   ///< running and delivering frames: STATUS_OK
    NotRunning, ///< open (or opening, starting, stopping) but not tracking: STATUS_NOT_READY
    NoFrames,   ///< running, but no frame for a while: STATUS_TIME_OUT
    Closed,     ///< closed, or no stream served: STATUS_DISABLED
    Ended,      ///< the source has no more frames (a replayed recording at its end): STATUS_DISABLED
};

/// The messages of one tracking frame, packed once for every client.
struct IgtlEncodedFrame {
    /// The frame's time (frameTimeUS(): its capture time when known), milliseconds since the epoch.
    std::uint64_t timestampMs = 0;
    /// The TRANSFORMs of the tracked instruments (and of their tips), then the POINT of the raw
    /// fiducials when the frame has them: one buffer, sent to every client.
    Packet poses;
    std::uint32_t poseMessages = 0;
    /// The TDATA of the tracked instruments, for the clients that asked; null when none is tracked.
    Packet trackingData;
    /// The frame's reference instrument (ReferencePoseData), by id and by transform name; empty
    /// without one.
    std::string referenceId;
    std::string referenceName;
    /// The TDATA of the poses in the reference's frame, for the clients that asked for TDATA in
    /// the reference's coordinate system; null when none is valid in this frame.
    Packet referenceTrackingData;

    /// Whether a client's coordinate name (STT_TDATA) is the reference's, by name or id.
    bool namesReference(const std::string& coordinateName) const {
        return !coordinateName.empty() && (coordinateName == referenceName || coordinateName == referenceId);
    }
    /// The instruments' STATUS messages of this frame's transitions (tracked or not, and why).
    std::vector<Packet> statuses;
};

/// Packs tracking frames, camera images and statuses as OpenIGTLink messages, remembering each
/// instrument's last status so that it reports the transitions. Used by one thread (the server's).
///
/// Every message of a frame carries the frame's time in its header: its capture time when the
/// producer attached one, else its arrival (frameTimeUS()), to the microsecond.
///
/// Names (the frame's InstrumentNames): in the camera's frame, an instrument's TRANSFORM is
/// "<Name>ToTracker" and its tip's "<Name>TipToTracker" when the user named it ("Stylus"), else
/// its id ("atracsys-1000") and "<id>-tip"; its TDATA element is its name or id. With a reference
/// (the frame's ReferencePoseData), each instrument valid in the reference's frame also gets
/// "<Name>To<RefName>" and "<Name>TipTo<RefName>" (e.g. "StylusToReference",
/// "StylusTipToReference"), names being the user's or the id's safe form ("Atracsys1000"). STATUS
/// messages are named by the id. The protocol allows 20 characters, so a longer name is cut to 11
/// and followed by "~" and 8 hexadecimal digits of its hash.
class IgtlFrameEncoder {
public:
    /// Device names of the messages that are not about one instrument.
    static constexpr const char* CameraDeviceName = "camera";
    static constexpr const char* TrackingDataDeviceName = "kestrion";
    static constexpr const char* FiducialsDeviceName = "fiducials";
    static constexpr const char* StrayGroupName = "stray";

    /// A name of at most 20 characters for `name`, as described above.
    static std::string deviceName(const std::string& name);

    /// Packs the frame's messages into `out` (its previous content replaced).
    void encode(const TrackingStreamData& frame, IgtlEncodedFrame& out);
    /// The camera's STATUS text: `reason` when not empty, else the state's own text.
    static std::string cameraStatusText(CameraState state, const std::string& reason = {});
    /// The camera's STATUS message, with that text.
    Packet cameraStatus(CameraState state, std::uint64_t timestampMs, const std::string& reason = {});
    /// The camera does not deliver: every instrument seen so far turns to not tracked, with
    /// `reason`; their STATUS messages are appended to `out` (none for an instrument already told
    /// so). The next frame reports each instrument's state again.
    void untrackInstruments(const std::string& reason, std::uint64_t timestampMs, std::vector<Packet>& out);
    /// The last STATUS message of every instrument seen so far, for a client that just connected.
    void instrumentStatuses(std::vector<Packet>& out) const;
    /// The answer to STT_TDATA.
    Packet startTrackingDataReply(std::uint64_t timestampMs);
    /// Appends the IMAGE message of a camera image (8-bit, one channel) under `name`, stamped with
    /// `timestampUS` (its frame's time); false (and nothing appended) for another kind of image.
    bool appendImage(std::vector<std::uint8_t>& out, const ImageStreamData& data, const std::string& name,
                     std::uint64_t timestampUS);

private:
    struct InstrumentStatus {
        int code = -1;
        int subCode = -1;
        bool untracked = false; // told not tracked because the camera does not deliver
        std::string untrackedReason;
        Packet message;
    };

    /// The user's name of the instrument, else its id's safe form.
    static std::string transformName(const InstrumentNames* names, const std::string& instrumentId);
    /// Adds a 6D element (reused from `elements`, `used` of them taken) to a TDATA message.
    static void addElement(igtl::TrackingDataMessage& message,
                           std::vector<igtl::TrackingDataElement::Pointer>& elements, std::size_t& used,
                           const std::string& name, const Eigen::Matrix4d& pose);
    Packet packTrackingData(igtl::TrackingDataMessage& message);
    void appendTransform(std::vector<std::uint8_t>& out, const std::string& name,
                         const Eigen::Matrix3d& rotation, const Eigen::Vector3d& translation);
    void appendPoints(std::vector<std::uint8_t>& out, const TrackingStreamData& frame);
    Packet status(const std::string& deviceName, int code, int subCode, const std::string& errorName,
                  const std::string& text);
    void stamp(igtl::MessageBase* message) const;
    static void append(std::vector<std::uint8_t>& out, igtl::MessageBase* message);

    IgtlBufferPool m_pool;
    std::uint64_t m_timestampUS = 0; // of the messages being packed
    // Reused from frame to frame: packing replaces their content.
    igtl::TransformMessage::Pointer m_transform = igtl::TransformMessage::New();
    igtl::TrackingDataMessage::Pointer m_trackingData = igtl::TrackingDataMessage::New();
    std::vector<igtl::TrackingDataElement::Pointer> m_elements;
    igtl::TrackingDataMessage::Pointer m_referenceTrackingData = igtl::TrackingDataMessage::New();
    std::vector<igtl::TrackingDataElement::Pointer> m_referenceElements;
    igtl::PointMessage::Pointer m_points = igtl::PointMessage::New();
    std::vector<igtl::PointElement::Pointer> m_pointElements;
    igtl::StatusMessage::Pointer m_status = igtl::StatusMessage::New();
    igtl::ImageMessage::Pointer m_image = igtl::ImageMessage::New();
    std::map<std::string, InstrumentStatus> m_instruments;
};

} // namespace Kestrion::Igtl
