#include "host/igtl/IgtlServerAlgorithm.h"

namespace Kestrion::Igtl {

IgtlServerAlgorithm::IgtlServerAlgorithm() = default;

IgtlServerAlgorithm::~IgtlServerAlgorithm() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_server.reset();
}

void IgtlServerAlgorithm::compute() {
    setStatus(start() ? Success : Error);
}

IgtlServerSettings IgtlServerAlgorithm::settings() const {
    IgtlServerSettings settings;
    settings.port = m_portSetting;
    settings.bindAddress = m_bindAddress;
    settings.imageRateHz = m_imageRate;
    return settings;
}

bool IgtlServerAlgorithm::start() {
    const IgtlServerSettings wanted = settings();
    auto server = std::make_unique<IgtlServer>(wanted);
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_server && wanted.port != 0 && m_server->settings().port == wanted.port &&
        m_server->settings().bindAddress == wanted.bindAddress)
        m_server.reset(); // the same address and port: the old server lets go of them first
    std::string error;
    if (!server->start(&error)) {
        m_error = error;
        return false;
    }
    server->serve(m_stream);
    m_server.swap(server); // the previous one, if any, stops as `server` goes
    m_error.clear();
    return true;
}

void IgtlServerAlgorithm::stop() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_server.reset();
    m_error.clear();
}

void IgtlServerAlgorithm::serve(TrackingStream* stream) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stream = stream;
    if (m_server)
        m_server->serve(stream);
}

IgtlServerAlgorithm::State IgtlServerAlgorithm::state() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    State state;
    state.error = m_error;
    if (m_server) {
        state.listening = true;
        state.running = m_server->settings();
        state.endpoint = state.running.bindAddress + ":" + std::to_string(m_server->port());
    }
    return state;
}

int IgtlServerAlgorithm::port() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_server ? m_server->port() : 0;
}

std::vector<IgtlClientInfo> IgtlServerAlgorithm::clients() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_server ? m_server->clients() : std::vector<IgtlClientInfo>();
}

std::string IgtlServerAlgorithm::failureReason() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_error;
}

} // namespace Kestrion::Igtl
