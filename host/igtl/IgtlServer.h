#pragma once

#include "host/core/SignalConnection.h"
#include "host/igtl/IgtlFrameEncoder.h"
#include "host/igtl/IgtlServerSettings.h"
#include "host/stream/Stream.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Kestrion {
class StreamData;
class TrackingStream;
} // namespace Kestrion

namespace Kestrion::Igtl {

class IgtlClientConnection;

/// A connected client as the server last saw it.
struct IgtlClientInfo {
    std::string address; ///< "ip:port"
    std::uint64_t messagesSent = 0;
    std::uint64_t messagesDropped = 0;
    bool trackingData = false; ///< asked for TDATA (STT_TDATA) and not stopped
};

/// Serves a tracking stream to OpenIGTLink clients (3D Slicer's OpenIGTLinkIF and any other).
///
/// Per frame: a TRANSFORM per tracked instrument (and per tool tip), a POINT of the raw fiducials
/// when the frame has them, a TDATA to the clients that asked with STT_TDATA (at their
/// resolution), STATUS messages on each instrument's transitions and on the camera's state, and
/// the camera images at most at the settings' rate. Whether the camera delivers is the stream's
/// health (Stream::health()); while it does not, every instrument is reported not tracked.
/// See docs/openigtlink.md.
///
/// Threads. The stream's worker thread only puts the frame into a one-frame slot and wakes the
/// server thread (a newer frame replaces one not yet taken). The server thread packs each frame
/// once, queues it for every client and does all the socket work, non-blocking, so that no
/// client can hold up another or the stream. A third thread packs the camera images, which are
/// large, so that they never delay the poses. start(), serve(), stop() and clients() may be called
/// from any thread but the stream's worker.
class IgtlServer {
public:
    explicit IgtlServer(IgtlServerSettings settings = {});
    /// Stops serving (see stop()).
    ~IgtlServer();
    IgtlServer(const IgtlServer&) = delete;
    IgtlServer& operator=(const IgtlServer&) = delete;

    /// Listens on the settings' address and port and starts the server's threads. False (and a
    /// logged error, also in *error) when the address is not valid or the port cannot be used.
    bool start(std::string* error = nullptr);
    /// Serves `stream` from now on (null: none); asks it for the instruments' status while it
    /// serves it. The stream must outlive its serving: call serve(nullptr) or stop() first.
    void serve(TrackingStream* stream);
    /// Ends serving, closes every client and the listening socket, ends the threads.
    void stop();

    bool isListening() const { return m_listenSocket >= 0; }
    /// The port listened on (the system's choice when the settings said 0); 0 when not listening.
    int port() const { return m_port; }
    const IgtlServerSettings& settings() const { return m_settings; }
    /// The connected clients, in order of connection.
    std::vector<IgtlClientInfo> clients() const;
    /// Frames the server thread never packed because a newer one arrived first.
    std::uint64_t framesSkipped() const { return m_framesSkipped.load(std::memory_order_relaxed); }

    /// What the stream's data signal calls, on the stream's worker thread: hands the frame over.
    void onStreamData(const std::shared_ptr<const StreamData>& data);

private:
    using Clock = std::chrono::steady_clock;

    void run();
    void imageLoop();
    void wake();
    void takeFrame(Clock::time_point now);
    void acceptClients(Clock::time_point now);
    void handleInput(IgtlClientConnection& client, Clock::time_point now);
    void updateCameraState(Clock::time_point now);
    void publishClients();

    const IgtlServerSettings m_settings;
    int m_listenSocket = -1;
    int m_wakeEvent = -1;
    int m_port = 0;
    std::thread m_thread;
    std::thread m_imageThread;
    std::atomic<bool> m_stopping{false};

    // The stream served. m_serveMutex orders serve() against stop() (control threads), and the
    // server thread's reading of the stream's health against serve(); the worker never takes it.
    std::mutex m_serveMutex;
    TrackingStream* m_stream = nullptr;
    SignalConnection m_dataConnection;
    SignalConnection m_stateConnection;
    std::atomic<bool> m_serving{false};
    std::atomic<int> m_streamState{0};

    // The hand-off slot, filled by the worker and emptied by the server thread; the lock is held
    // for a pointer swap only. m_wakePending spares the worker a system call while the server
    // has not yet taken the previous frame.
    std::mutex m_slotMutex;
    std::shared_ptr<const StreamData> m_slot;
    std::atomic<bool> m_wakePending{false};
    std::atomic<std::size_t> m_clientCount{0};
    std::atomic<std::uint64_t> m_framesSkipped{0};

    // The images to pack (server thread -> image thread) and the packed ones (back).
    std::mutex m_imageMutex;
    std::condition_variable m_imageWanted;
    std::shared_ptr<const StreamData> m_imageInput;
    Packet m_imageOutput;
    std::uint32_t m_imageOutputCount = 0;

    // Published copy of the clients for other threads; the server thread rewrites it.
    mutable std::mutex m_clientsMutex;
    std::vector<IgtlClientInfo> m_clientInfo;

    // Server thread only.
    IgtlFrameEncoder m_encoder;
    IgtlEncodedFrame m_encoded;
    std::vector<std::unique_ptr<IgtlClientConnection>> m_clients;
    CameraState m_cameraState = CameraState::Closed;
    std::string m_cameraReason;
    Packet m_cameraStatus;
    Clock::time_point m_nextImage;
};

} // namespace Kestrion::Igtl
