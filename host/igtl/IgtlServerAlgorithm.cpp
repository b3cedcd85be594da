#include "host/igtl/IgtlServerAlgorithm.h"

#include "host/igtl/IgtlServer.h"

namespace Kestrion::Igtl {

IgtlServerAlgorithm::IgtlServerAlgorithm() = default;

IgtlServerAlgorithm::~IgtlServerAlgorithm() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_server.reset();
}

void IgtlServerAlgorithm::compute() {
    IgtlServerSettings settings;
    settings.port = m_portSetting;
    settings.bindAddress = m_bindAddress;
    auto server = std::make_unique<IgtlServer>(settings);
    std::string error;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_server.reset(); // the old one lets go of the port first
    if (!server->start(&error)) {
        m_listening = error;
        setStatus(Error);
        return;
    }
    server->serve(m_stream);
    m_listening = settings.bindAddress + ":" + std::to_string(server->port());
    m_server = std::move(server);
    setStatus(Success);
}

void IgtlServerAlgorithm::serve(TrackingStream* stream) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stream = stream;
    if (m_server)
        m_server->serve(stream);
}

int IgtlServerAlgorithm::port() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_server ? m_server->port() : 0;
}

} // namespace Kestrion::Igtl
