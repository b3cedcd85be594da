#pragma once

#include "atracsys/device/AtracsysDeviceHelpers.h"
#include "atracsys/device/AtracsysOptionHelpers.h"

#include <ftkInterface.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace Kestrion::SpryTrack {

/// The connection to one camera: the SDK library handle, the device found on it, its option
/// table, the frame record that fetches fill, and the state of the current run of failed fetches.
///
/// Every SDK call on the handle or the frame record is made with mutex() held; the members below
/// marked "(mutex)" are read and written only with it held. The error run belongs to the
/// acquisition loop alone (one thread) and needs no lock.
class AtracsysDeviceContext {
public:
    /// Capacities of the frame record's containers.
    static constexpr std::uint32_t eventsCapacity = 20;
    static constexpr std::uint32_t rawDataCapacity = 128;
    static constexpr std::uint32_t fiducialsCapacity = 256;
    static constexpr std::uint32_t markersCapacity = 16;

    enum class FrameResult { Created, CreateFailed, OptionsFailed };

    AtracsysDeviceContext() = default;
    /// Releases the frame records and closes the library handle if they are still held.
    ~AtracsysDeviceContext();
    AtracsysDeviceContext(const AtracsysDeviceContext&) = delete;
    AtracsysDeviceContext& operator=(const AtracsysDeviceContext&) = delete;

    /// Serialises every SDK call made through this context.
    std::mutex& mutex() { return m_mutex; }

    /// (mutex) The SDK handle; null while the library is not open.
    ftkLibrary library() const { return m_library; }
    void setLibrary(ftkLibrary library) { m_library = library; }
    /// (mutex) ftkClose of the handle (if any); the handle is forgotten whatever the result.
    ftkError closeLibrary();

    /// (mutex) The device selected at open: serial number (0: none), type and display name.
    const AtracsysHelpers::DeviceData& device() const { return m_device; }
    void setDevice(AtracsysHelpers::DeviceData device) { m_device = std::move(device); }
    std::uint64_t serialNumber() const { return m_device.serialNumber; }

    /// (mutex) Option name to option id, read at open.
    const AtracsysHelpers::OptionTable& options() const { return m_options; }
    void setOptions(AtracsysHelpers::OptionTable options) { m_options = std::move(options); }

    /// (mutex) The frame record fetches are made into; null when none is held.
    ftkFrameQuery* frame() const { return m_frame.get(); }
    /// (mutex) Creates a frame record with the capacities above (pixels requested). On
    /// OptionsFailed the new record is kept, so that the error reporter releases it.
    FrameResult createFrame();
    /// (mutex) Gives up the frame record: no later fetch or release goes to it, but its contents
    /// stay readable until releaseRetiredFrame(), so that a frame being processed when an error
    /// is reported can still be read to its end.
    void retireFrame();
    /// (mutex) Deletes a frame record given up by retireFrame().
    void releaseRetiredFrame();
    /// (mutex) Deletes the frame record.
    void releaseFrame();

    /// Error run of the acquisition loop: consecutive failed fetches and their distinct codes.
    std::uint32_t errorCount = 0;
    std::set<ftkError> errorCodes;

private:
    struct FrameDeleter {
        void operator()(ftkFrameQuery* frame) const;
    };
    using FramePtr = std::unique_ptr<ftkFrameQuery, FrameDeleter>;

    std::mutex m_mutex;
    ftkLibrary m_library = nullptr;
    AtracsysHelpers::DeviceData m_device;
    AtracsysHelpers::OptionTable m_options;
    FramePtr m_frame;
    FramePtr m_retiredFrame;
};

} // namespace Kestrion::SpryTrack
