#pragma once

#include "host/core/SignalConnection.h"
#include "host/core/SignalReceiver.h"

#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <type_traits>
#include <vector>

namespace Kestrion {

namespace SignalDetail {
/// Logs an exception that a slot threw (category "Signal", error level).
void reportSlotException(const char* what);
} // namespace SignalDetail

/// A signal: a list of slots called synchronously, in connection order, on the thread that emits.
///
/// PropagateExceptions chooses what happens when a slot throws:
/// - false: the exception is caught and logged (category "Signal", error level) and the remaining
///   slots are still called. Use it for signals whose emitter must not be disturbed by its
///   receivers (stream data, state changes, device updates).
/// - true: the exception leaves emitSignal() in the emitting thread and the remaining slots of that
///   emission are not called.
///
/// Thread safety: connect, disconnect and emit may be called from any thread at the same time.
/// An emission works on the slots connected when it began, but skips a slot whose connection has
/// ended meanwhile; disconnecting (from a SignalConnection, a SignalReceiver or disconnectAll)
/// waits until the slot is no longer running on other threads (see SignalConnection::disconnect).
/// No lock is held while a slot runs, so slots may connect, disconnect and emit.
///
/// No identifier here is named like Qt's keyword macros (slots, signals, emit), so that the header
/// can follow Qt headers.
///
/// Arguments are passed to every slot as given: an lvalue-reference argument reaches each slot as
/// the same object, a value argument is copied for each slot.
template <bool PropagateExceptions, class... Args>
class SignalImpl {
    static_assert((!std::is_rvalue_reference_v<Args> && ...),
                  "signal arguments are values or lvalue references");

public:
    using Slot = std::function<void(Args...)>;

    SignalImpl()
        : m_core(std::make_shared<Core>()) {}
    /// Ends every connection (waiting for slots running on other threads).
    ~SignalImpl() { disconnectAll(); }
    /// A signal belongs to the object that emits it; copies of that object start unconnected.
    SignalImpl(const SignalImpl&)
        : SignalImpl() {}
    SignalImpl& operator=(const SignalImpl&) { return *this; }

    /// Connects a slot; the returned handle ends the connection (dropping the handle does not).
    SignalConnection connect(Slot slot) {
        auto state = std::make_shared<SlotEntry>(std::move(slot));
        m_core->add(state);
        return SignalConnection(state, m_core);
    }

    /// Connects a slot whose connection ends at the latest with the receiver.
    SignalConnection connect(SignalReceiver* receiver, Slot slot) {
        SignalConnection connection = connect(std::move(slot));
        if (receiver)
            receiver->trackConnection(connection);
        return connection;
    }

    /// Connects a member function of a receiver; the connection ends with the receiver.
    template <class Receiver, class... MethodArgs>
    SignalConnection connect(Receiver* receiver, void (Receiver::*method)(MethodArgs...)) {
        static_assert(std::is_base_of_v<SignalReceiver, Receiver>,
                      "member functions are connected on SignalReceiver objects");
        return connect(static_cast<SignalReceiver*>(receiver), [receiver, method](Args... args) {
            (receiver->*method)(std::forward<Args>(args)...);
        });
    }

    /// Ends every connection of this signal.
    void disconnectAll() {
        auto all = m_core->takeAll();
        if (all)
            for (const auto& slot : *all)
                slot->disconnectAndWait();
    }

    std::size_t numConnections() const {
        auto current = m_core->snapshot();
        return current ? current->size() : 0;
    }

    /// Calls every connected slot, in connection order, on this thread.
    void emitSignal(Args... args) {
        // The snapshot keeps the slots alive even if this signal is destroyed by one of them; the
        // loop touches nothing of `this` after taking it.
        const auto current = m_core->snapshot();
        if (!current)
            return;
        for (const auto& slot : *current) {
            if (!slot->beginCall())
                continue;
            SignalDetail::CallScope scope(*slot);
            if constexpr (PropagateExceptions) {
                slot->function(args...);
            } else {
                try {
                    slot->function(args...);
                } catch (const std::exception& e) {
                    SignalDetail::reportSlotException(e.what());
                } catch (...) {
                    SignalDetail::reportSlotException("unknown exception");
                }
            }
        }
    }
    void operator()(Args... args) { emitSignal(std::forward<Args>(args)...); }

private:
    struct SlotEntry : SignalDetail::SlotState {
        explicit SlotEntry(Slot f)
            : function(std::move(f)) {}
        const Slot function; // never changed after connecting, so calls need no lock
    };
    using SlotList = std::vector<std::shared_ptr<SlotEntry>>;

    // The slot list is copied on write: connecting and disconnecting replace it, an emission only
    // takes a reference to the current one. Emissions therefore allocate nothing and hold the
    // mutex only for the copy of one shared pointer.
    class Core : public SignalDetail::SignalCore {
    public:
        void add(std::shared_ptr<SlotEntry> slot) {
            std::lock_guard<std::mutex> lock(m_mutex);
            auto next = std::make_shared<SlotList>();
            if (m_slots) {
                next->reserve(m_slots->size() + 1);
                *next = *m_slots;
            }
            next->push_back(std::move(slot));
            m_slots = std::move(next);
        }
        void removeSlot(const SignalDetail::SlotState* slot) override {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (!m_slots)
                return;
            auto next = std::make_shared<SlotList>();
            for (const auto& entry : *m_slots)
                if (entry.get() != slot)
                    next->push_back(entry);
            if (next->empty())
                m_slots.reset();
            else
                m_slots = std::move(next);
        }
        std::shared_ptr<const SlotList> snapshot() const {
            std::lock_guard<std::mutex> lock(m_mutex);
            return m_slots;
        }
        std::shared_ptr<const SlotList> takeAll() {
            std::lock_guard<std::mutex> lock(m_mutex);
            std::shared_ptr<const SlotList> all = std::move(m_slots);
            m_slots.reset();
            return all;
        }

    private:
        mutable std::mutex m_mutex; // guards the pointer to the current list, not the list (immutable)
        std::shared_ptr<const SlotList> m_slots;
    };

    std::shared_ptr<Core> m_core;
};

/// The usual signal: exceptions of slots are logged and do not reach the emitter.
template <class... Args>
using Signal = SignalImpl<false, Args...>;

} // namespace Kestrion
