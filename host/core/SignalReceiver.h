#pragma once

#include "host/core/SignalConnection.h"

#include <mutex>
#include <vector>

namespace Kestrion {

/// Base of objects whose member functions are connected to signals. Connections made with a
/// receiver (SignalImpl::connect(receiver, ...)) end when the receiver is destroyed, from
/// whichever thread: once disconnectAllSignals() has returned, none of those slots is running on
/// another thread nor will run again.
///
/// The base destructor runs after the derived class's members are gone. A derived class whose
/// slots use its own members, and whose signals may be emitted from another thread, calls
/// disconnectAllSignals() at the start of its own destructor, so that no slot can run on a
/// half-destroyed object.
class SignalReceiver {
public:
    SignalReceiver() = default;
    virtual ~SignalReceiver();
    /// A copy has no connections: connections belong to the object they were made for.
    SignalReceiver(const SignalReceiver&) {}
    SignalReceiver& operator=(const SignalReceiver&) { return *this; }

    /// Ends every connection made with this receiver (see SignalConnection::disconnect).
    void disconnectAllSignals();
    /// Number of this receiver's connections that are still connected.
    std::size_t numConnections() const;

    /// Records a connection to end with the receiver; the signal's connect() calls it.
    void trackConnection(const SignalConnection& connection);

private:
    // Guards the list only: connections are ended outside it, because ending one may wait for a
    // running slot, and that slot may connect or disconnect through this receiver.
    mutable std::mutex m_mutex;
    std::vector<SignalConnection> m_connections;
};

} // namespace Kestrion
