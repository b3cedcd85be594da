#include "host/igtl/IgtlFrameEncoder.h"

#include "host/core/Image.h"
#include "host/core/SharedImage.h"
#include "host/stream/ImageStreamData.h"
#include "host/stream/InstrumentStatusData.h"
#include "host/stream/InstrumentTipData.h"
#include "host/stream/TrackingInstrumentFiducialsData.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/InstrumentNames.h"
#include "host/stream/state/InstrumentTracking.h"
#include "host/stream/state/ReferencePoseData.h"

#include <cstdio>
#include <cstring>

namespace Kestrion::Igtl {

namespace {

constexpr std::size_t MaxNameLength = 20;

std::uint32_t fnv1a(const std::string& text) {
    std::uint32_t hash = 2166136261u;
    for (unsigned char c : text)
        hash = (hash ^ c) * 16777619u;
    return hash;
}

int statusCode(InstrumentStatusData::State state) {
    using State = InstrumentStatusData::State;
    switch (state) {
    case State::Tracked:
    case State::TrackedHighError:
        return igtl::StatusMessage::STATUS_OK;
    case State::NotOnCamera:
        return igtl::StatusMessage::STATUS_NOT_PRESENT;
    case State::Inactive:
        return igtl::StatusMessage::STATUS_DISABLED;
    default:
        return igtl::StatusMessage::STATUS_NOT_FOUND;
    }
}

} // namespace

std::string IgtlFrameEncoder::deviceName(const std::string& name) {
    if (name.size() <= MaxNameLength)
        return name;
    char hash[16];
    std::snprintf(hash, sizeof hash, "~%08x", fnv1a(name));
    return name.substr(0, MaxNameLength - 9) + hash;
}

void IgtlFrameEncoder::stamp(igtl::MessageBase* message) const {
    // The fraction of a second is in units of 2^-32 s.
    const std::uint64_t fraction = ((m_timestampUS % 1000000) << 32) / 1000000;
    message->SetTimeStamp(static_cast<unsigned int>(m_timestampUS / 1000000),
                          static_cast<unsigned int>(fraction));
}

void IgtlFrameEncoder::append(std::vector<std::uint8_t>& out, igtl::MessageBase* message) {
    message->Pack();
    const auto* bytes = static_cast<const std::uint8_t*>(message->GetPackPointer());
    out.insert(out.end(), bytes, bytes + message->GetPackSize());
}

void IgtlFrameEncoder::appendTransform(std::vector<std::uint8_t>& out, const std::string& name,
                                       const Eigen::Matrix3d& rotation, const Eigen::Vector3d& translation) {
    igtl::Matrix4x4 matrix;
    igtl::IdentityMatrix(matrix);
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c)
            matrix[r][c] = static_cast<float>(rotation(r, c));
        matrix[r][3] = static_cast<float>(translation(r));
    }
    m_transform->SetDeviceName(deviceName(name).c_str());
    m_transform->SetMatrix(matrix);
    stamp(m_transform);
    append(out, m_transform);
}

void IgtlFrameEncoder::appendPoints(std::vector<std::uint8_t>& out, const TrackingStreamData& frame) {
    const auto* fiducials = frame.component<TrackingInstrumentFiducialsData>();
    if (!fiducials || fiducials->empty())
        return;
    m_points->ClearPointElement();
    const auto& instruments = frame.instruments();
    for (std::size_t i = 0; i < fiducials->size(); ++i) {
        if (m_pointElements.size() <= i)
            m_pointElements.push_back(igtl::PointElement::New());
        igtl::PointElement::Pointer& element = m_pointElements[i];
        const std::uint32_t owner = fiducials->instrumentIndices()[i];
        const bool owned = owner < instruments.size();
        const std::string name = "fiducial-" + std::to_string(i);
        element->SetName(name.c_str());
        element->SetGroupName(owned ? deviceName(instruments[owner].ID()).c_str() : StrayGroupName);
        if (owned)
            element->SetRGBA(0, 255, 0, 255);
        else
            element->SetRGBA(255, 255, 0, 255);
        const Eigen::Vector3d& p = fiducials->positions()[i];
        element->SetPosition(static_cast<float>(p.x()), static_cast<float>(p.y()), static_cast<float>(p.z()));
        element->SetRadius(1.0f);
        element->SetOwner("");
        m_points->AddPointElement(element);
    }
    m_points->SetDeviceName(FiducialsDeviceName);
    stamp(m_points);
    append(out, m_points);
}

void IgtlFrameEncoder::encode(const TrackingStreamData& frame, IgtlEncodedFrame& out) {
    m_timestampUS = frameTimeUS(frame);
    out.timestampMs = m_timestampUS / 1000;
    out.statuses.clear();
    out.poseMessages = 0;
    const auto* statusData = frame.component<InstrumentStatusData>();
    const auto* tips = frame.component<InstrumentTipData>();

    const auto* names = frame.component<InstrumentNames>();
    const auto* reference = frame.component<ReferencePoseData>();
    out.referenceId = reference ? reference->referenceId() : std::string();
    out.referenceName = reference ? transformName(names, reference->referenceId()) : std::string();

    IgtlBufferPool::Buffer poses = m_pool.acquire();
    m_trackingData->ClearTrackingDataElements();
    m_referenceTrackingData->ClearTrackingDataElements();
    std::size_t elements = 0;
    std::size_t referenceElements = 0;
    for (const TrackingInstrument& instrument : frame.instruments()) {
        const InstrumentStatusData::Entry* entry = statusData ? statusData->find(instrument.ID()) : nullptr;
        const bool tracked = isInstrumentTracked(frame, instrument);

        // A STATUS message when the instrument's state changed since the last frame.
        const int code =
            entry ? statusCode(entry->state)
                  : (tracked ? igtl::StatusMessage::STATUS_OK : igtl::StatusMessage::STATUS_NOT_FOUND);
        const int subCode = entry ? static_cast<int>(entry->state) : 0;
        InstrumentStatus& last = m_instruments[instrument.ID()];
        if (last.code != code || last.subCode != subCode || last.untracked) {
            const std::string name =
                entry ? InstrumentStatusData::stateName(entry->state) : (tracked ? "tracked" : "not tracked");
            last.code = code;
            last.subCode = subCode;
            last.untracked = false;
            last.message = status(deviceName(instrument.ID()), code, subCode, name,
                                  entry && !entry->reason.empty() ? entry->reason : name);
            out.statuses.push_back(last.message);
        }
        if (!tracked)
            continue;

        // In the camera's frame: "<Name>ToTracker" for an instrument the user named, else its id.
        const std::string userName = names ? names->userName(instrument.ID()) : std::string();
        const InstrumentTipData::Entry* tip = tips ? tips->find(instrument.ID()) : nullptr;
        appendTransform(*poses, userName.empty() ? instrument.ID() : userName + "ToTracker",
                        instrument.rotation(), instrument.translation());
        ++out.poseMessages;
        if (tip) {
            appendTransform(*poses, userName.empty() ? instrument.ID() + "-tip" : userName + "TipToTracker",
                            instrument.rotation(), tip->tipInCamera);
            ++out.poseMessages;
        }
        addElement(*m_trackingData, m_elements, elements, userName.empty() ? instrument.ID() : userName,
                   instrument.matrix);

        // In the reference's frame, only when valid (the instrument and the reference both tracked
        // in this frame): "<Name>To<RefName>", "<Name>TipTo<RefName>".
        const ReferencePoseData::Entry* relative = reference ? reference->find(instrument.ID()) : nullptr;
        if (!relative)
            continue;
        const std::string name = transformName(names, instrument.ID());
        const Eigen::Matrix3d rotation = relative->poseInReference.block<3, 3>(0, 0);
        appendTransform(*poses, name + "To" + out.referenceName, rotation,
                        relative->poseInReference.block<3, 1>(0, 3));
        ++out.poseMessages;
        if (relative->tipInReference) {
            appendTransform(*poses, name + "TipTo" + out.referenceName, rotation, *relative->tipInReference);
            ++out.poseMessages;
        }
        addElement(*m_referenceTrackingData, m_referenceElements, referenceElements,
                   name + "To" + out.referenceName, relative->poseInReference);
    }
    const std::size_t before = poses->size();
    appendPoints(*poses, frame);
    if (poses->size() > before)
        ++out.poseMessages;
    out.poses = poses;
    out.trackingData = elements > 0 ? packTrackingData(*m_trackingData) : nullptr;
    out.referenceTrackingData = referenceElements > 0 ? packTrackingData(*m_referenceTrackingData) : nullptr;
}

std::string IgtlFrameEncoder::transformName(const InstrumentNames* names, const std::string& instrumentId) {
    return names ? names->transformName(instrumentId) : InstrumentNames::safeName(instrumentId);
}

void IgtlFrameEncoder::addElement(igtl::TrackingDataMessage& message,
                                  std::vector<igtl::TrackingDataElement::Pointer>& elements,
                                  std::size_t& used, const std::string& name, const Eigen::Matrix4d& pose) {
    if (elements.size() <= used)
        elements.push_back(igtl::TrackingDataElement::New());
    igtl::TrackingDataElement::Pointer& element = elements[used++];
    element->SetName(deviceName(name).c_str());
    element->SetType(igtl::TrackingDataElement::TYPE_6D);
    igtl::Matrix4x4 matrix;
    igtl::IdentityMatrix(matrix);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 4; ++c)
            matrix[r][c] = static_cast<float>(pose(r, c));
    element->SetMatrix(matrix);
    message.AddTrackingDataElement(element);
}

Packet IgtlFrameEncoder::packTrackingData(igtl::TrackingDataMessage& message) {
    IgtlBufferPool::Buffer tdata = m_pool.acquire();
    message.SetDeviceName(TrackingDataDeviceName);
    stamp(&message);
    append(*tdata, &message);
    return tdata;
}

Packet IgtlFrameEncoder::status(const std::string& name, int code, int subCode, const std::string& errorName,
                                const std::string& text) {
    m_status->SetDeviceName(name.c_str());
    m_status->SetCode(static_cast<unsigned short>(code));
    m_status->SetSubCode(subCode);
    m_status->SetErrorName(errorName.substr(0, 19).c_str());
    m_status->SetStatusString(text.c_str());
    stamp(m_status);
    auto buffer = std::make_shared<std::vector<std::uint8_t>>();
    append(*buffer, m_status);
    return buffer;
}

namespace {
struct CameraStatusText {
    int code;
    const char* errorName;
    const char* text;
};
CameraStatusText cameraStatusOf(CameraState state) {
    switch (state) {
    case CameraState::Tracking:
        return {igtl::StatusMessage::STATUS_OK, "tracking", "open and tracking"};
    case CameraState::NotRunning:
        return {igtl::StatusMessage::STATUS_NOT_READY, "not tracking", "open, not tracking"};
    case CameraState::NoFrames:
        return {igtl::StatusMessage::STATUS_TIME_OUT, "no frames", "camera not delivering frames"};
    case CameraState::Ended:
        return {igtl::StatusMessage::STATUS_DISABLED, "ended", "no more frames"};
    case CameraState::Closed:
        break;
    }
    return {igtl::StatusMessage::STATUS_DISABLED, "closed", "stream closed"};
}
} // namespace

std::string IgtlFrameEncoder::cameraStatusText(CameraState state, const std::string& reason) {
    return reason.empty() ? cameraStatusOf(state).text : reason;
}

Packet IgtlFrameEncoder::cameraStatus(CameraState state, std::uint64_t timestampMs,
                                      const std::string& reason) {
    m_timestampUS = timestampMs * 1000;
    const CameraStatusText of = cameraStatusOf(state);
    return status(CameraDeviceName, of.code, 0, of.errorName, cameraStatusText(state, reason));
}

void IgtlFrameEncoder::untrackInstruments(const std::string& reason, std::uint64_t timestampMs,
                                          std::vector<Packet>& out) {
    m_timestampUS = timestampMs * 1000;
    for (auto& [id, last] : m_instruments) {
        if (last.untracked && last.untrackedReason == reason)
            continue;
        last.code = igtl::StatusMessage::STATUS_NOT_FOUND;
        last.subCode = 0;
        last.untracked = true;
        last.untrackedReason = reason;
        last.message = status(deviceName(id), last.code, 0, "not tracked", reason);
        out.push_back(last.message);
    }
}

void IgtlFrameEncoder::instrumentStatuses(std::vector<Packet>& out) const {
    for (const auto& [id, state] : m_instruments)
        if (state.message)
            out.push_back(state.message);
}

Packet IgtlFrameEncoder::startTrackingDataReply(std::uint64_t timestampMs) {
    m_timestampUS = timestampMs * 1000;
    auto reply = igtl::RTSTrackingDataMessage::New();
    reply->SetDeviceName(TrackingDataDeviceName);
    reply->SetStatus(igtl::RTSTrackingDataMessage::STATUS_SUCCESS);
    stamp(reply);
    auto buffer = std::make_shared<std::vector<std::uint8_t>>();
    append(*buffer, reply);
    return buffer;
}

bool IgtlFrameEncoder::appendImage(std::vector<std::uint8_t>& out, const ImageStreamData& data,
                                   const std::string& name, std::uint64_t timestampUS) {
    const auto& shared = data.image();
    if (!shared || !shared->image())
        return false;
    const Image& image = *shared->image();
    if (image.pixelType() != PixelType::UInt8 || image.channels() != 1 || image.slices() != 1)
        return false;
    m_timestampUS = timestampUS;
    m_image->SetDimensions(image.width(), image.height(), 1);
    m_image->SetSpacing(1.0f, 1.0f, 1.0f);
    m_image->SetScalarTypeToUint8();
    m_image->SetNumComponents(1);
    m_image->SetDeviceName(deviceName(name).c_str());
    m_image->AllocateScalars();
    std::memcpy(m_image->GetScalarPointer(), image.rawData(), image.byteSize());
    stamp(m_image);
    append(out, m_image);
    return true;
}

} // namespace Kestrion::Igtl
