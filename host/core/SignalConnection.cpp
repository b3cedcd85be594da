#include "host/core/SignalConnection.h"

namespace Kestrion {

namespace SignalDetail {

namespace {
// The innermost slot call running on this thread; each CallScope links to the one it interrupts.
thread_local const CallScope* t_innermostCall = nullptr;
} // namespace

SlotState::~SlotState() = default;

bool SlotState::connected() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_connected;
}

void SlotState::disconnectAndWait() {
    const int own = CallScope::countOnThisThread(this);
    std::unique_lock<std::mutex> lock(m_mutex);
    m_connected = false;
    m_idle.wait(lock, [&] { return m_running <= own; });
}

bool SlotState::beginCall() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_connected)
        return false;
    ++m_running;
    return true;
}

void SlotState::endCall() {
    std::lock_guard<std::mutex> lock(m_mutex);
    --m_running;
    if (!m_connected)
        m_idle.notify_all();
}

SignalCore::~SignalCore() = default;

CallScope::CallScope(SlotState& slot)
    : m_slot(slot)
    , m_previous(t_innermostCall) {
    t_innermostCall = this;
}

CallScope::~CallScope() {
    t_innermostCall = m_previous;
    m_slot.endCall();
}

int CallScope::countOnThisThread(const SlotState* slot) {
    int count = 0;
    for (const CallScope* call = t_innermostCall; call; call = call->m_previous)
        if (&call->m_slot == slot)
            ++count;
    return count;
}

} // namespace SignalDetail

SignalConnection::SignalConnection(std::weak_ptr<SignalDetail::SlotState> slot,
                                   std::weak_ptr<SignalDetail::SignalCore> core)
    : m_slot(std::move(slot))
    , m_core(std::move(core)) {}

void SignalConnection::disconnect() {
    // A slot that no longer exists has left the signal and every emission that used it.
    auto slot = m_slot.lock();
    if (!slot)
        return;
    slot->disconnectAndWait();
    if (auto core = m_core.lock())
        core->removeSlot(slot.get());
}

bool SignalConnection::connected() const {
    auto slot = m_slot.lock();
    return slot && slot->connected();
}

} // namespace Kestrion
