#include "atracsys/stream/AtracsysDeviceContext.h"

namespace Kestrion::SpryTrack {

void AtracsysDeviceContext::FrameDeleter::operator()(ftkFrameQuery* frame) const {
    if (frame)
        ftkDeleteFrame(frame);
}

AtracsysDeviceContext::~AtracsysDeviceContext() {
    // The owner closes the stream before destroying its context; this only catches what an
    // interrupted open or close left behind. No other thread uses the context any more.
    std::lock_guard<std::mutex> lock(m_mutex);
    m_frame.reset();
    m_retiredFrame.reset();
    closeLibrary();
}

ftkError AtracsysDeviceContext::closeLibrary() {
    if (!m_library)
        return ftkError::FTK_OK;
    const ftkError result = ftkClose(&m_library);
    m_library = nullptr;
    return result;
}

AtracsysDeviceContext::FrameResult AtracsysDeviceContext::createFrame() {
    m_frame.reset(ftkCreateFrame());
    if (!m_frame)
        return FrameResult::CreateFailed;
    const ftkError result = ftkSetFrameOptions(true, eventsCapacity, rawDataCapacity, rawDataCapacity,
                                               fiducialsCapacity, markersCapacity, m_frame.get());
    return result == ftkError::FTK_OK ? FrameResult::Created : FrameResult::OptionsFailed;
}

void AtracsysDeviceContext::retireFrame() {
    if (!m_frame)
        return;
    m_retiredFrame = std::move(m_frame);
}

void AtracsysDeviceContext::releaseRetiredFrame() {
    m_retiredFrame.reset();
}

void AtracsysDeviceContext::releaseFrame() {
    m_frame.reset();
}

} // namespace Kestrion::SpryTrack
