#include "host/igtl/IgtlServer.h"

#include "host/core/Log.h"
#include "host/core/Time.h"
#include "host/igtl/IgtlClientConnection.h"
#include "host/igtl/IgtlEndpoint.h"
#include "host/stream/CompoundStreamData.h"
#include "host/stream/ImageStream.h"
#include "host/stream/ImageStreamData.h"
#include "host/stream/TrackingStream.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/InstrumentTracking.h"
#include "host/stream/state/StreamHealth.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace Kestrion::Igtl {

namespace {

const char* const Category = "IgtlServer";
// The server thread wakes at least this often to check timeouts and the camera's state.
constexpr int PollIntervalMs = 50;

std::string addressText(const sockaddr_in& address) {
    char text[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    return std::string(text) + ":" + std::to_string(ntohs(address.sin_port));
}

} // namespace

IgtlServer::IgtlServer(IgtlServerSettings settings)
    : m_settings(std::move(settings)) {}

IgtlServer::~IgtlServer() {
    stop();
}

bool IgtlServer::start(std::string* error) {
    const std::string where = m_settings.bindAddress + ":" + std::to_string(m_settings.port);
    auto fail = [&](const std::string& why) {
        const std::string message = "OpenIGTLink server cannot listen on " + where + ": " + why;
        KESTRION_LOG_ERROR(Category, message);
        if (error)
            *error = message;
        if (m_listenSocket >= 0)
            ::close(m_listenSocket);
        m_listenSocket = -1;
        return false;
    };
    if (isListening())
        return true;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    if (const std::string why = IgtlEndpoint::portProblem(m_settings.port); !why.empty())
        return fail(why);
    address.sin_port = htons(static_cast<std::uint16_t>(m_settings.port));
    if (const std::string why = IgtlEndpoint::bindAddressProblem(m_settings.bindAddress); !why.empty())
        return fail(why);
    ::inet_pton(AF_INET, m_settings.bindAddress.c_str(), &address.sin_addr);
    m_listenSocket = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (m_listenSocket < 0)
        return fail(std::strerror(errno));
    const int yes = 1;
    ::setsockopt(m_listenSocket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    if (::bind(m_listenSocket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(m_listenSocket, 16) != 0)
        return fail(std::strerror(errno));
    socklen_t length = sizeof address;
    ::getsockname(m_listenSocket, reinterpret_cast<sockaddr*>(&address), &length);
    m_port = ntohs(address.sin_port);
    m_wakeEvent = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (m_wakeEvent < 0)
        return fail(std::strerror(errno));
    m_stopping = false;
    m_thread = std::thread([this] { run(); });
    m_imageThread = std::thread([this] { imageLoop(); });
    KESTRION_LOG_INFO(Category,
                      "OpenIGTLink server listening on " << m_settings.bindAddress << ":" << m_port);
    return true;
}

void IgtlServer::serve(TrackingStream* stream) {
    std::lock_guard<std::mutex> lock(m_serveMutex);
    if (m_stream == stream)
        return;
    // Disconnecting waits until a running slot has returned, so no frame of the old stream
    // arrives afterwards.
    m_dataConnection.disconnect();
    m_stateConnection.disconnect();
    if (m_stream)
        m_stream->releaseInstrumentStatus();
    m_stream = stream;
    if (stream) {
        stream->requestInstrumentStatus();
        m_stateConnection = stream->signalStateChanged.connect([this](Stream::State state) {
            m_streamState.store(static_cast<int>(state));
            wake();
        });
        m_streamState.store(static_cast<int>(stream->currentState()));
        m_dataConnection = stream->signalStreamData.connect(
            [this](std::shared_ptr<const StreamData> data) { onStreamData(data); });
    }
    m_serving.store(stream != nullptr);
    wake();
}

void IgtlServer::stop() {
    serve(nullptr);
    if (m_thread.joinable()) {
        {
            // Set under the image thread's mutex: between its check of the flag and its wait,
            // the image thread holds this mutex, so the notification below cannot fall between
            // them and be lost.
            std::lock_guard<std::mutex> lock(m_imageMutex);
            m_stopping = true;
        }
        wake();
        m_imageWanted.notify_all();
        m_thread.join();
        m_imageThread.join();
        KESTRION_LOG_INFO(Category, "OpenIGTLink server stopped");
    }
    if (m_listenSocket >= 0)
        ::close(m_listenSocket);
    if (m_wakeEvent >= 0)
        ::close(m_wakeEvent);
    m_listenSocket = -1;
    m_wakeEvent = -1;
    m_port = 0;
    std::lock_guard<std::mutex> lock(m_slotMutex);
    m_slot.reset();
}

std::vector<IgtlClientInfo> IgtlServer::clients() const {
    std::lock_guard<std::mutex> lock(m_clientsMutex);
    return m_clientInfo;
}

void IgtlServer::wake() {
    if (m_wakeEvent < 0)
        return;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(m_wakeEvent, &one, sizeof one);
}

void IgtlServer::onStreamData(const std::shared_ptr<const StreamData>& data) {
    std::shared_ptr<const StreamData> replaced;
    {
        std::lock_guard<std::mutex> lock(m_slotMutex);
        replaced = std::exchange(m_slot, data);
    }
    if (replaced)
        m_framesSkipped.fetch_add(1, std::memory_order_relaxed);
    // Without clients nobody waits for the frame: the server takes it at its next round.
    if (m_clientCount.load(std::memory_order_relaxed) > 0 && !m_wakePending.exchange(true))
        wake();
}

void IgtlServer::run() {
    std::vector<pollfd> polled;
    while (!m_stopping.load()) {
        polled.clear();
        polled.push_back({m_wakeEvent, POLLIN, 0});
        polled.push_back({m_listenSocket, POLLIN, 0});
        for (const auto& client : m_clients)
            polled.push_back(
                {client->socket(), static_cast<short>(POLLIN | (client->hasPending() ? POLLOUT : 0)), 0});
        ::poll(polled.data(), polled.size(), PollIntervalMs);
        const auto now = Clock::now();
        if (polled[0].revents & POLLIN) {
            std::uint64_t count = 0;
            [[maybe_unused]] const ssize_t got = ::read(m_wakeEvent, &count, sizeof count);
        }
        takeFrame(now);
        updateCameraState(now);
        // The clients polled are the first ones; those accepted below are polled next round.
        const std::size_t polledClients = polled.size() - 2;
        for (std::size_t i = 0; i < polledClients; ++i) {
            IgtlClientConnection& client = *m_clients[i];
            if (polled[i + 2].revents & (POLLIN | POLLHUP | POLLERR))
                handleInput(client, now);
            if (!client.closed())
                client.writePending(now);
        }
        if (polled[1].revents & POLLIN)
            acceptClients(now);
        for (auto it = m_clients.begin(); it != m_clients.end();) {
            IgtlClientConnection& client = **it;
            if (!client.closed()) {
                ++it;
                continue;
            }
            if (client.closeReason().empty())
                KESTRION_LOG_INFO(Category, "OpenIGTLink client " << client.address() << " disconnected");
            else
                KESTRION_LOG_WARN(Category, "OpenIGTLink client " << client.address()
                                                                  << " dropped: " << client.closeReason());
            it = m_clients.erase(it);
        }
        publishClients();
    }
    // A last word to the clients: what changed just before the stop (the stream closing),
    // written as far as their sockets take it without waiting.
    const auto now = Clock::now();
    takeFrame(now);
    updateCameraState(now);
    for (const auto& client : m_clients)
        if (!client->closed())
            client->writePending(now);
    m_clients.clear();
    publishClients();
}

void IgtlServer::takeFrame(Clock::time_point now) {
    m_wakePending.store(false);
    std::shared_ptr<const StreamData> frame;
    {
        std::lock_guard<std::mutex> lock(m_slotMutex);
        frame = std::move(m_slot);
        m_slot.reset();
    }
    {
        std::lock_guard<std::mutex> lock(m_imageMutex);
        if (m_imageOutput) {
            for (const auto& client : m_clients)
                client->queueImage(m_imageOutput, m_imageOutputCount, now);
            m_imageOutput.reset();
        }
    }
    if (!frame)
        return;
    const auto tracking = findStreamData<TrackingStreamData>(frame);
    if (tracking) {
        m_encoder.encode(*tracking, m_encoded);
        for (const auto& client : m_clients) {
            for (const Packet& status : m_encoded.statuses)
                client->queueStatus(status, now);
            // A client that named the reference as its coordinate system gets the poses in the
            // reference's frame; any other the camera's.
            const Packet& trackingData = m_encoded.namesReference(client->coordinateName())
                                             ? m_encoded.referenceTrackingData
                                             : m_encoded.trackingData;
            const bool tdata = trackingData && client->takesTrackingData(m_encoded.timestampMs);
            client->queueFrame(m_encoded.poses, m_encoded.poseMessages, tdata ? trackingData : nullptr, now);
        }
    }
    // Images at most at the settings' rate, packed on their own thread.
    const auto* compound = dynamic_cast<const CompoundStreamData*>(frame.get());
    if (m_settings.imageRateHz > 0.0 && compound && !compound->subData().empty() && !m_clients.empty() &&
        now >= m_nextImage) {
        m_nextImage = now + std::chrono::duration_cast<Clock::duration>(
                                std::chrono::duration<double>(1.0 / m_settings.imageRateHz));
        {
            std::lock_guard<std::mutex> lock(m_imageMutex);
            m_imageInput = frame;
        }
        m_imageWanted.notify_one();
    }
}

void IgtlServer::imageLoop() {
    IgtlFrameEncoder encoder; // this thread's own: packing keeps state
    for (;;) {
        std::shared_ptr<const StreamData> input;
        {
            std::unique_lock<std::mutex> lock(m_imageMutex);
            m_imageWanted.wait(lock, [this] { return m_stopping.load() || m_imageInput; });
            if (m_stopping.load())
                return;
            input = std::move(m_imageInput);
            m_imageInput.reset();
        }
        auto packed = std::make_shared<std::vector<std::uint8_t>>();
        std::uint32_t count = 0;
        const auto& compound = static_cast<const CompoundStreamData&>(*input);
        // The images carry the time of the frame they belong to, as its poses do.
        const auto tracking = findStreamData<TrackingStreamData>(input);
        const std::uint64_t timeUS = tracking ? frameTimeUS(*tracking) : Time::utcMilliseconds() * 1000;
        for (const auto& sub : compound.subData()) {
            const auto* image = dynamic_cast<const ImageStreamData*>(sub.get());
            const Stream* source = image ? image->stream() : nullptr;
            if (image && encoder.appendImage(*packed, *image, source ? source->name() : "image", timeUS))
                ++count;
        }
        if (count == 0)
            continue;
        {
            std::lock_guard<std::mutex> lock(m_imageMutex);
            m_imageOutput = std::move(packed);
            m_imageOutputCount = count;
        }
        wake();
    }
}

void IgtlServer::acceptClients(Clock::time_point now) {
    for (;;) {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        const int socket = ::accept4(m_listenSocket, reinterpret_cast<sockaddr*>(&address), &length,
                                     SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (socket < 0)
            return;
        const std::string name = addressText(address);
        if (m_clients.size() >= m_settings.maxClients) {
            KESTRION_LOG_WARN(Category, "OpenIGTLink client " << name << " refused: the limit of "
                                                              << m_settings.maxClients
                                                              << " clients is reached");
            ::close(socket);
            continue;
        }
        const int yes = 1; // poses go out at once rather than being gathered into larger packets
        ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        KESTRION_LOG_INFO(Category, "OpenIGTLink client " << name << " connected");
        auto client = std::make_unique<IgtlClientConnection>(socket, name, m_settings);
        if (m_cameraStatus)
            client->queueStatus(m_cameraStatus, now);
        std::vector<Packet> statuses;
        m_encoder.instrumentStatuses(statuses);
        for (Packet& status : statuses)
            client->queueStatus(std::move(status), now);
        m_clients.push_back(std::move(client));
    }
}

void IgtlServer::handleInput(IgtlClientConnection& client, Clock::time_point now) {
    std::vector<IgtlMessageReader::Request> requests;
    client.readInput(requests);
    for (const auto& request : requests) {
        switch (request.kind) {
        case IgtlMessageReader::Request::Kind::StartTrackingData:
            client.startTrackingData(request.resolutionMs, request.coordinateName);
            client.queueStatus(m_encoder.startTrackingDataReply(Time::utcMilliseconds()), now);
            break;
        case IgtlMessageReader::Request::Kind::StopTrackingData:
            client.stopTrackingData();
            break;
        case IgtlMessageReader::Request::Kind::GetStatus:
            if (m_cameraStatus)
                client.queueStatus(m_cameraStatus, now);
            break;
        }
    }
}

void IgtlServer::updateCameraState(Clock::time_point now) {
    const auto state = static_cast<Stream::State>(m_streamState.load());
    CameraState camera = CameraState::Closed;
    std::string reason;
    if (!m_serving.load() || state == Stream::State::Closed || state == Stream::State::Closing) {
        camera = CameraState::Closed;
    } else if (state != Stream::State::Running) {
        camera = CameraState::NotRunning;
    } else {
        // Whether frames come is the stream's health, the one definition every output reads.
        // Taken under m_serveMutex: serve() cannot let go of the stream meanwhile.
        StreamHealth::Snapshot health;
        {
            std::lock_guard<std::mutex> lock(m_serveMutex);
            if (m_stream)
                health = m_stream->health().snapshot();
        }
        if (health.state == StreamHealth::State::Delivering) {
            camera = CameraState::Tracking;
        } else if (health.state == StreamHealth::State::NotDelivering) {
            camera = CameraState::NoFrames;
        } else if (health.state == StreamHealth::State::Ended) {
            camera = CameraState::Ended;
            reason = health.endReason;
        } else {
            camera = CameraState::NotRunning; // running, its health not started yet
        }
    }
    if (m_cameraStatus && camera == m_cameraState && reason == m_cameraReason)
        return;
    m_cameraState = camera;
    m_cameraReason = reason;
    const std::uint64_t timeMs = Time::utcMilliseconds();
    m_cameraStatus = m_encoder.cameraStatus(camera, timeMs, reason);
    // Without frames no instrument is tracked, whatever the last frame said.
    std::vector<Packet> instruments;
    if (camera != CameraState::Tracking)
        m_encoder.untrackInstruments(IgtlFrameEncoder::cameraStatusText(camera, reason), timeMs, instruments);
    for (const auto& client : m_clients) {
        client->queueStatus(m_cameraStatus, now);
        for (const Packet& instrument : instruments)
            client->queueStatus(instrument, now);
    }
}

void IgtlServer::publishClients() {
    m_clientCount.store(m_clients.size(), std::memory_order_relaxed);
    std::lock_guard<std::mutex> lock(m_clientsMutex);
    m_clientInfo.resize(m_clients.size());
    for (std::size_t i = 0; i < m_clients.size(); ++i) {
        IgtlClientInfo& info = m_clientInfo[i];
        info.address = m_clients[i]->address();
        info.messagesSent = m_clients[i]->messagesSent();
        info.messagesDropped = m_clients[i]->messagesDropped();
        info.trackingData = m_clients[i]->trackingData();
    }
}

} // namespace Kestrion::Igtl
