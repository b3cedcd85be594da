#include "host/core/SignalReceiver.h"

#include <algorithm>

namespace Kestrion {

SignalReceiver::~SignalReceiver() {
    disconnectAllSignals();
}

void SignalReceiver::disconnectAllSignals() {
    for (;;) {
        std::vector<SignalConnection> connections;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            connections.swap(m_connections);
        }
        if (connections.empty())
            return;
        for (auto& connection : connections)
            connection.disconnect();
    }
}

std::size_t SignalReceiver::numConnections() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<std::size_t>(std::count_if(m_connections.begin(), m_connections.end(),
                                                  [](const SignalConnection& c) { return c.connected(); }));
}

void SignalReceiver::trackConnection(const SignalConnection& connection) {
    std::lock_guard<std::mutex> lock(m_mutex);
    // Connections ended from the signal's side are dropped here, so the list stays as long as the
    // receiver's live connections.
    m_connections.erase(std::remove_if(m_connections.begin(), m_connections.end(),
                                       [](const SignalConnection& c) { return !c.connected(); }),
                        m_connections.end());
    m_connections.push_back(connection);
}

} // namespace Kestrion
