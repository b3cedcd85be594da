#pragma once

#include "host/core/Signal.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <tuple>
#include <type_traits>

namespace Kestrion {

/// Connects a slow receiver to a signal so that it skips emissions instead of slowing down the
/// emitter. Each emission copies its arguments (decayed to values) and hands them to the
/// debouncer's own thread, which calls the receiver with them. While the receiver is busy, a newer
/// emission replaces the waiting one: the receiver always gets the latest arguments and the
/// intermediate ones are dropped. The emitting thread only pays for the copy.
///
/// Destruction (or stop()) ends the connection, drops an emission still waiting and ends the
/// thread; it waits for a receiver call in progress, unless it runs inside that call (then the
/// thread ends on its own after the call returns).
template <class... Args>
class SignalDebouncer {
public:
    using Receiver = std::function<void(std::decay_t<Args>&...)>;

    template <bool PropagateExceptions>
    SignalDebouncer(SignalImpl<PropagateExceptions, Args...>& signal, Receiver receiver)
        : m_state(std::make_shared<State>(std::move(receiver))) {
        m_thread = std::thread([state = m_state] { state->run(); });
        m_connection = signal.connect(
            [state = m_state](Args... args) { state->post(std::tuple<std::decay_t<Args>...>(args...)); });
    }
    ~SignalDebouncer() { stop(); }
    SignalDebouncer(const SignalDebouncer&) = delete;
    SignalDebouncer& operator=(const SignalDebouncer&) = delete;

    void stop() {
        m_connection.disconnect();
        {
            std::lock_guard<std::mutex> lock(m_state->mutex);
            m_state->stopping = true;
            m_state->pending.reset();
        }
        m_state->changed.notify_all();
        if (!m_thread.joinable())
            return;
        if (m_thread.get_id() == std::this_thread::get_id())
            m_thread.detach(); // stopped from inside the receiver: the thread owns the state too
        else
            m_thread.join();
    }

    /// Emissions handed to the receiver, and emissions replaced by newer ones before delivery.
    std::uint64_t deliveredCount() const {
        std::lock_guard<std::mutex> lock(m_state->mutex);
        return m_state->delivered;
    }
    std::uint64_t droppedCount() const {
        std::lock_guard<std::mutex> lock(m_state->mutex);
        return m_state->dropped;
    }
    /// Waits until no emission is waiting and the receiver is not running; false on timeout.
    template <class Rep, class Period>
    bool waitUntilIdle(std::chrono::duration<Rep, Period> timeout) const {
        std::unique_lock<std::mutex> lock(m_state->mutex);
        return m_state->changed.wait_for(
            lock, timeout, [&] { return m_state->stopping || (!m_state->pending && !m_state->busy); });
    }

private:
    // Shared by the debouncer, its thread and its slot, so that whichever ends last frees it.
    struct State {
        explicit State(Receiver r)
            : receiver(std::move(r)) {}

        void post(std::tuple<std::decay_t<Args>...>&& values) {
            {
                std::lock_guard<std::mutex> lock(mutex);
                if (stopping)
                    return;
                if (pending)
                    ++dropped;
                pending = std::move(values);
            }
            changed.notify_all();
        }

        void run() {
            std::unique_lock<std::mutex> lock(mutex);
            for (;;) {
                changed.wait(lock, [&] { return stopping || pending.has_value(); });
                if (stopping)
                    return;
                auto values = std::move(*pending);
                pending.reset();
                busy = true;
                ++delivered;
                lock.unlock(); // the receiver runs unlocked so that emissions keep replacing `pending`
                try {
                    std::apply(receiver, values);
                } catch (const std::exception& e) {
                    SignalDetail::reportSlotException(e.what());
                } catch (...) {
                    SignalDetail::reportSlotException("unknown exception");
                }
                lock.lock();
                busy = false;
                changed.notify_all();
            }
        }

        const Receiver receiver;
        // Guards everything below; the emitting thread, the debouncer thread and the owner meet here.
        mutable std::mutex mutex;
        mutable std::condition_variable changed;
        std::optional<std::tuple<std::decay_t<Args>...>> pending;
        bool busy = false;
        bool stopping = false;
        std::uint64_t delivered = 0;
        std::uint64_t dropped = 0;
    };

    std::shared_ptr<State> m_state;
    std::thread m_thread;
    SignalConnection m_connection;
};

template <bool PropagateExceptions, class... Args, class Receiver>
SignalDebouncer(SignalImpl<PropagateExceptions, Args...>&, Receiver) -> SignalDebouncer<Args...>;

} // namespace Kestrion
