#pragma once

#include "atracsys/device/AtracsysDeviceHelpers.h"
#include "atracsys/device/AtracsysOptionHelpers.h"

#include <ftkInterface.h>

#include <atomic>
#include <condition_variable>
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
///
/// Hand-over. The acquisition loop holds the mutex across its fetch, which waits for the camera's
/// next frame, and takes it again as soon as it has released it. std::mutex is not fair, so a
/// call from another thread (a geometry added from the user interface) could wait for many
/// frames. Every other caller therefore takes the mutex through a Lock, which announces it first;
/// the loop takes it through a FetchLock, which waits, before locking, until no announced caller
/// is left. Such a call thus waits for one fetch at most plus the calls announced before it, and
/// the mutex still serialises every SDK call. Paced by the camera, the loop's wait for a frame is
/// made of 1 ms fetches (AtracsysAcquisition::fetchFrame), so that one fetch is 1 ms at most.
class AtracsysDeviceContext {
public:
    /// The mutex for anything but the fetch: announced, so that the next fetch waits for it.
    class Lock {
    public:
        explicit Lock(AtracsysDeviceContext& device);
        ~Lock();
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;
        /// Gives the mutex back before the end of the scope (once).
        void unlock();

    private:
        AtracsysDeviceContext& m_device;
        std::unique_lock<std::mutex> m_lock;
    };

    /// The mutex for the fetch: taken once no announced caller waits for it.
    class FetchLock {
    public:
        explicit FetchLock(AtracsysDeviceContext& device);
        FetchLock(const FetchLock&) = delete;
        FetchLock& operator=(const FetchLock&) = delete;

    private:
        std::unique_lock<std::mutex> m_lock;
    };

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

    /// (mutex) The error report of open and of the acquisition loop: gives up the frame record
    /// (see retireFrame), logs "AtracsysTrackingStream: <message>" and the SDK's last error text.
    void reportError(const std::string& message);

    /// Error run of the acquisition loop: consecutive failed fetches and their distinct codes.
    std::uint32_t errorCount = 0;
    std::set<ftkError> errorCodes;

private:
    struct FrameDeleter {
        void operator()(ftkFrameQuery* frame) const;
    };
    using FramePtr = std::unique_ptr<ftkFrameQuery, FrameDeleter>;

    std::mutex m_mutex;
    // Hand-over: callers announced and waiting for m_mutex; the fetch waits on m_noneWaiting
    // (under m_handOverMutex, so that the last caller's notification is not missed) until it is 0.
    std::atomic<int> m_waiting{0};
    std::mutex m_handOverMutex;
    std::condition_variable m_noneWaiting;
    ftkLibrary m_library = nullptr;
    AtracsysHelpers::DeviceData m_device;
    AtracsysHelpers::OptionTable m_options;
    FramePtr m_frame;
    FramePtr m_retiredFrame;
};

} // namespace Kestrion::SpryTrack
