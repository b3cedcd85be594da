#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>

namespace Kestrion {

namespace SignalDetail {

/// The shared state of one connection: whether it is still connected and how many calls of its
/// slot are running. A signal keeps its slots by shared pointer; an emission holds a snapshot of
/// them, so a slot outlives its removal from the signal until the emissions using it are over.
class SlotState {
public:
    SlotState() = default;
    virtual ~SlotState();
    SlotState(const SlotState&) = delete;
    SlotState& operator=(const SlotState&) = delete;

    bool connected() const;

    /// Ends the connection. When it returns, the slot is not running on any other thread and will
    /// never be called again. Calls of the slot that are running on the calling thread (the slot
    /// disconnecting itself, or a nested emission) are not waited for: that would never end.
    void disconnectAndWait();

    /// Called by the emission around each call of the slot: beginCall() fails once the connection
    /// has ended, and a successful beginCall() must be followed by endCall().
    bool beginCall();
    void endCall();

private:
    int callsOnThisThread() const;

    // Guards m_connected and m_running: the emitting threads and the disconnecting thread meet here,
    // and checking m_connected and counting the call must be one step, or disconnect could return
    // between the check and the call.
    mutable std::mutex m_mutex;
    std::condition_variable m_idle;
    bool m_connected = true;
    int m_running = 0;
};

/// The part of a signal that a connection handle needs: removing one slot. Held by weak pointer
/// from the handles, so a handle may outlive its signal.
class SignalCore {
public:
    virtual ~SignalCore();
    virtual void removeSlot(const SlotState* slot) = 0;
};

/// Marks the slot as running on this thread for the lifetime of the object; the emission creates
/// one per call so that a disconnect from inside the slot knows not to wait for itself.
class CallScope {
public:
    explicit CallScope(SlotState& slot);
    ~CallScope();
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;

    static int countOnThisThread(const SlotState* slot);

private:
    SlotState& m_slot;
    const CallScope* m_previous;
};

} // namespace SignalDetail

/// A handle to one connection between a signal and a slot. Copies refer to the same connection.
/// Ending it from any copy, from the signal (disconnectAll, destruction) or from a SignalReceiver
/// ends it for all.
class SignalConnection {
public:
    SignalConnection() = default;
    SignalConnection(std::weak_ptr<SignalDetail::SlotState> slot,
                     std::weak_ptr<SignalDetail::SignalCore> core);

    /// Ends the connection (idempotent). Once it returns, the slot is not running and will not
    /// run, except for a call of this slot on the calling thread itself (disconnecting from inside
    /// the slot), which goes on to its end. Never call it while holding a lock that the slot takes.
    void disconnect();
    bool connected() const;
    explicit operator bool() const { return connected(); }

private:
    std::weak_ptr<SignalDetail::SlotState> m_slot;
    std::weak_ptr<SignalDetail::SignalCore> m_core;
};

} // namespace Kestrion
