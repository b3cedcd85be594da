#include "python/src/PythonFrame.h"

#include "host/stream/CompoundStreamData.h"
#include "host/stream/DeviceFrameInfo.h"
#include "host/stream/ImageStream.h"
#include "host/stream/ImageStreamData.h"
#include "host/stream/InstrumentStatusData.h"
#include "host/stream/InstrumentTipData.h"
#include "host/stream/TrackingInstrumentFiducialsData.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/InstrumentNames.h"
#include "host/stream/state/InstrumentTracking.h"
#include "host/stream/state/ReferencePoseData.h"

namespace Kestrion::Python {

std::shared_ptr<PythonFrame> PythonFrame::fromStreamData(const std::shared_ptr<const StreamData>& data) {
    auto tracking = findStreamData<TrackingStreamData>(data);
    if (!tracking)
        return nullptr;
    // The camera images by substream name, else in the order the stream sends them.
    std::shared_ptr<SharedImage> left, right;
    std::vector<std::shared_ptr<SharedImage>> unnamed;
    if (const auto* compound = dynamic_cast<const CompoundStreamData*>(data.get()))
        for (const auto& sub : compound->subData()) {
            const auto* image = dynamic_cast<const ImageStreamData*>(sub.get());
            if (!image || !image->image() || !image->image()->image())
                continue;
            const std::string name = image->imageStream() ? image->imageStream()->name() : std::string();
            if (name == "Camera (left)")
                left = image->image();
            else if (name == "Camera (right)")
                right = image->image();
            else
                unnamed.push_back(image->image());
        }
    if (!left && !right && unnamed.size() == 2) {
        left = unnamed[0];
        right = unnamed[1];
    }
    if (!left || !right)
        left = right = nullptr; // a pair or nothing
    return std::make_shared<PythonFrame>(std::move(tracking), std::move(left), std::move(right));
}

PythonFrame::PythonFrame(std::shared_ptr<const TrackingStreamData> tracking,
                         std::shared_ptr<SharedImage> left, std::shared_ptr<SharedImage> right)
    : m_tracking(std::move(tracking))
    , m_left(std::move(left))
    , m_right(std::move(right)) {}

std::optional<std::uint32_t> PythonFrame::counter() const {
    if (const auto* device = m_tracking->component<DeviceFrameInfo>())
        return device->frameCounter();
    return std::nullopt;
}

std::optional<std::uint64_t> PythonFrame::deviceUs() const {
    if (const auto* device = m_tracking->component<DeviceFrameInfo>())
        return device->deviceTimestampUS();
    return std::nullopt;
}

std::uint64_t PythonFrame::captureUs() const {
    return frameTimeUS(*m_tracking);
}

std::uint64_t PythonFrame::arrivalMs() const {
    return m_tracking->arrivalTimestamp();
}

std::optional<std::string> PythonFrame::referenceId() const {
    if (const auto* reference = m_tracking->component<ReferencePoseData>())
        return reference->referenceId();
    return std::nullopt;
}

std::vector<PythonTool> PythonFrame::tools() const {
    const auto* status = m_tracking->component<InstrumentStatusData>();
    const auto* tips = m_tracking->component<InstrumentTipData>();
    const auto* names = m_tracking->component<InstrumentNames>();
    const auto* reference = m_tracking->component<ReferencePoseData>();
    std::vector<PythonTool> tools;
    tools.reserve(m_tracking->instruments().size());
    for (const TrackingInstrument& instrument : m_tracking->instruments()) {
        PythonTool tool;
        tool.id = instrument.ID();
        tool.name = names ? names->displayName(tool.id) : tool.id;
        tool.tracked = isInstrumentTracked(*m_tracking, instrument);
        tool.quality = instrument.quality;
        if (tool.tracked)
            tool.pose = instrument.matrix;
        if (const InstrumentStatusData::Entry* entry = status ? status->find(tool.id) : nullptr) {
            tool.status = InstrumentStatusData::stateName(entry->state);
            tool.reason = entry->reason;
            tool.registrationErrorMm = entry->registrationErrorMm;
        } else if (const auto recorded = m_recordedErrors.find(tool.id); recorded != m_recordedErrors.end()) {
            tool.registrationErrorMm = recorded->second;
        }
        if (const InstrumentTipData::Entry* tip = tool.tracked && tips ? tips->find(tool.id) : nullptr)
            tool.tip = tip->tipInCamera;
        if (const ReferencePoseData::Entry* entry = reference ? reference->find(tool.id) : nullptr)
            tool.poseInReference = entry->poseInReference;
        tools.push_back(std::move(tool));
    }
    return tools;
}

const double* PythonFrame::fiducials(std::size_t& count) const {
    const auto* fiducials = m_tracking->component<TrackingInstrumentFiducialsData>();
    count = fiducials ? fiducials->size() : 0;
    // Eigen::Vector3d holds its three doubles without padding, so the list is an N x 3 array.
    static_assert(sizeof(Eigen::Vector3d) == 3 * sizeof(double), "fiducial positions are packed");
    return count > 0 ? fiducials->positions().front().data() : nullptr;
}

} // namespace Kestrion::Python
