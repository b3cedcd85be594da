#pragma once

#include "host/core/Data.h"
#include "host/core/Signal.h"
#include "host/stream/state/StreamHealth.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <future>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace Kestrion {

class StreamData;

/// A source of data over time (a camera, a tracker, a sub-part of another stream) with a state
/// machine, a data signal and, optionally, a worker thread that produces the data.
///
/// States and transitions (the numeric values are part of the interface):
///
///     Closed(0) -open-> Opening(1) -> Open(2) -start-> Starting(3) -> Running(4)
///     Running(4) -stop-> Stopping(8) -> Open(2) -close-> Closing(9) -> Closed(0)
///
/// Each transition calls the matching openImpl/startImpl/stopImpl/closeImpl. A transition whose
/// impl returns false or throws goes back to the state it started from (a failed open to Closed,
/// a failed start to Open, a failed stop to Running, a failed close to Open). Asking for the state
/// the stream is already in succeeds without calling anything (open while Open or Running, start
/// while Running, stop while Open, close while Closed). start and stop of a Closed stream are
/// refused without calling an impl, with a warning (category "Stream"). close of a Running stream
/// stops it first; if the stop fails, so does the close.
///
/// Threads. Transitions run one after the other on the stream's control thread, created at the
/// first transition and ended by the destructor: openAsync() and the other *Async functions queue
/// a transition and return a future whose get() gives the result or rethrows the impl's exception;
/// open(), start(), stop() and close() queue it and wait for it (and rethrow). The impls and the
/// state-change signal therefore always run on the control thread, one transition at a time.
///
/// Threading mode 0 (WorkerThreadMode): while the stream runs, a worker thread calls doWork()
/// again and again; after each call it sleeps until the returned time point (at once when it has
/// passed or when doWork returns no time point), and wakes at once when the stream is stopped or
/// closed. The worker starts after startImpl succeeded and ends before stopImpl is called, so
/// doWork never overlaps start, stop or close. Data emitted from doWork reaches the receivers of
/// signalStreamData synchronously on the worker thread. Mode 1 (NoThreadMode, the default): the
/// stream produces data by other means (its own callbacks, its group) and has no worker.
///
/// Transitions requested from inside doWork (or from a receiver running on the worker thread)
/// cannot wait, because stopping joins that very thread: open(), start(), stop() and close() then
/// queue the transition, return true at once ("requested") and log an exception of the impl at
/// error level; stop() and close() also end the worker's loop, so doWork is not called again and
/// the worker exits as soon as the current doWork returns. The stream is Closed (or Open) shortly
/// after; a second close() in a row is harmless. The same goes for the *Async forms: their futures
/// must not be waited for on the worker thread. From the control thread itself (a state-change
/// receiver or an impl) the synchronous forms are refused with an error log and return false; use
/// the *Async forms there.
///
/// Destruction. Transitions call the derived class's impls, which must not run on a half-destroyed
/// object: every class that overrides an impl or doWork calls close() at the start of its own
/// destructor, before its members die. The base destructor then finds the stream closed; if not,
/// it logs an error, ends the worker without calling any impl and drops the queued transitions
/// (their futures report false).
class Stream : public Data {
public:
    enum class State : int {
        Closed = 0,
        Opening = 1,
        Open = 2,
        Starting = 3,
        Running = 4,
        Stopping = 8,
        Closing = 9
    };
    enum ThreadingMode : int { WorkerThreadMode = 0, NoThreadMode = 1 };
    using Clock = std::chrono::system_clock;

    explicit Stream(std::string name);
    ~Stream() override;
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    bool open();
    bool start();
    bool stop();
    bool close();
    std::future<bool> openAsync();
    std::future<bool> startAsync();
    std::future<bool> stopAsync();
    std::future<bool> closeAsync();

    /// Safe from any thread; transitional states are seen while a transition runs.
    State currentState() const { return m_state.load(); }
    bool isStateOneOf(std::initializer_list<State> states) const;
    static const char* stateName(State state);

    virtual int threadingMode() const { return NoThreadMode; }

    /// Every state the stream enters, emitted on the control thread.
    Signal<State> signalStateChanged;
    /// The stream's data, emitted on the thread that produces it (the worker in mode 0).
    Signal<std::shared_ptr<const StreamData>> signalStreamData;

    /// Whether the stream delivers: noted by the base class at each start, stop and data item, and
    /// by the producer for failures and the end of its data; read from any thread.
    StreamHealth& health() { return m_health; }
    const StreamHealth& health() const { return m_health; }

protected:
    virtual bool openImpl() { return true; }
    virtual bool startImpl() { return true; }
    virtual bool stopImpl() { return true; }
    virtual bool closeImpl() { return true; }
    /// In closeImpl(): whether the stream asked for this close itself, from doWork (its device
    /// lost or failing), rather than its owner. Control thread only.
    bool closingItself() const { return m_closingItself; }
    /// One round of work on the worker thread (mode 0); returns when to be called next (no time
    /// point: at once, for a doWork that waits by itself, e.g. on a device with a timeout).
    virtual std::optional<Clock::time_point> doWork() { return std::nullopt; }

    /// Emits data on signalStreamData (on the calling thread).
    void emitStreamData(std::shared_ptr<const StreamData> data);

private:
    enum class Operation { Open, Start, Stop, Close };
    struct Request {
        Operation operation;
        std::promise<bool> promise;
        bool detached; // nobody waits for the future: exceptions are logged
    };

    std::future<bool> request(Operation operation, bool detached);
    bool requestAndWait(Operation operation);
    void controlLoop();
    bool execute(Operation operation);
    bool doOpen();
    bool doStart();
    bool doStop();
    bool doClose();
    void setState(State state);
    void startWorker();
    void stopWorker();
    void workerLoop();
    bool onControlThread() const;
    bool onWorkerThread() const;
    // Control thread only: the close being executed was asked for by the worker (doWork).
    bool m_closingItself = false;
    static const char* operationName(Operation operation);

    // Written only by the control thread (and the destructor once that thread has ended); atomic so
    // that any thread can read it without a lock.
    std::atomic<State> m_state{State::Closed};
    StreamHealth m_health;

    // Guards the request queue, the control thread's handle and its exit flag: requests arrive from
    // any thread. Never held while an impl or a receiver runs.
    std::mutex m_controlMutex;
    std::condition_variable m_controlWake;
    std::deque<Request> m_requests;
    std::thread m_controlThread;
    bool m_controlExit = false;

    // Guards the worker's exit flag; the worker sleeps on m_workerWake so that stop wakes it at once.
    // m_worker (the handle) itself is touched only by the control thread, and by the destructor after
    // the control thread has ended, so it needs no lock.
    std::mutex m_workerMutex;
    std::condition_variable m_workerWake;
    bool m_workerExit = false;
    std::thread m_worker;
};

} // namespace Kestrion
