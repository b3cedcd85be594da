#include "atracsys/stream/AtracsysDeviceContext.h"

#include "host/core/Log.h"

namespace Kestrion::SpryTrack {

AtracsysDeviceContext::Lock::Lock(AtracsysDeviceContext& device)
    : m_device(device) {
    m_device.m_waiting.fetch_add(1);
    m_lock = std::unique_lock<std::mutex>(m_device.m_mutex);
    // Once this caller holds the mutex it no longer waits; the fetch may go on after it.
    if (m_device.m_waiting.fetch_sub(1) == 1) {
        std::lock_guard<std::mutex> handOver(m_device.m_handOverMutex);
        m_device.m_noneWaiting.notify_all();
    }
}

AtracsysDeviceContext::Lock::~Lock() = default;

void AtracsysDeviceContext::Lock::unlock() {
    if (m_lock.owns_lock())
        m_lock.unlock();
}

AtracsysDeviceContext::FetchLock::FetchLock(AtracsysDeviceContext& device) {
    // Nobody announced (the usual case): no hand-over to wait for. A caller announcing itself
    // right after this check waits for this one fetch, as one announced during it would.
    if (device.m_waiting.load() != 0) {
        std::unique_lock<std::mutex> handOver(device.m_handOverMutex);
        device.m_noneWaiting.wait(handOver, [&device] { return device.m_waiting.load() == 0; });
    }
    // A caller announced from here on waits for this one fetch at most: the next one yields to it.
    m_lock = std::unique_lock<std::mutex>(device.m_mutex);
}

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

void AtracsysDeviceContext::reportError(const std::string& message) {
    // A frame being processed stays readable until the end of its acquisition round.
    retireFrame();
    KESTRION_LOG_ERROR("AtracsysTrackingStream", "AtracsysTrackingStream: " << message);
    AtracsysHelpers::checkErrorAndLog(m_library);
}

} // namespace Kestrion::SpryTrack
