#include "host/stream/Stream.h"

#include "host/core/Log.h"
#include "host/stream/StreamData.h"

#include <exception>

namespace Kestrion {

namespace {
const char* const Category = "Stream";

// Which stream's control or worker thread the current thread is, so that a transition requested
// from there is not waited for by the very thread that has to carry it out.
thread_local const Stream* t_controlThreadOf = nullptr;
thread_local const Stream* t_workerThreadOf = nullptr;

std::string describe(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& e) {
        return e.what();
    } catch (...) {
        return "unknown exception";
    }
}
} // namespace

Stream::Stream(std::string name)
    : Data(std::move(name)) {}

Stream::~Stream() {
    std::deque<Request> dropped;
    std::thread control;
    {
        std::lock_guard<std::mutex> lock(m_controlMutex);
        m_controlExit = true;
        dropped.swap(m_requests);
        control = std::move(m_controlThread);
    }
    m_controlWake.notify_all();
    if (control.joinable()) {
        if (control.get_id() == std::this_thread::get_id()) {
            KESTRION_LOG_ERROR(Category, "Stream '" << name() << "' destroyed on its own control thread");
            control.detach();
        } else {
            control.join(); // lets a transition in progress finish; the queued ones are dropped
        }
    }
    for (auto& request : dropped)
        request.promise.set_value(false);

    const State state = m_state.load();
    if (state != State::Closed)
        KESTRION_LOG_ERROR(Category, "Stream '" << name() << "' destroyed while " << stateName(state)
                                                << ": derived streams must call close() in their destructor");
    if (m_worker.joinable()) {
        {
            std::lock_guard<std::mutex> lock(m_workerMutex);
            m_workerExit = true;
        }
        m_workerWake.notify_all();
        if (m_worker.get_id() == std::this_thread::get_id())
            m_worker.detach();
        else
            m_worker.join();
    }
}

bool Stream::open() {
    return requestAndWait(Operation::Open);
}
bool Stream::start() {
    return requestAndWait(Operation::Start);
}
bool Stream::stop() {
    return requestAndWait(Operation::Stop);
}
bool Stream::close() {
    return requestAndWait(Operation::Close);
}
std::future<bool> Stream::openAsync() {
    return request(Operation::Open, false);
}
std::future<bool> Stream::startAsync() {
    return request(Operation::Start, false);
}
std::future<bool> Stream::stopAsync() {
    return request(Operation::Stop, false);
}
std::future<bool> Stream::closeAsync() {
    return request(Operation::Close, false);
}

bool Stream::isStateOneOf(std::initializer_list<State> states) const {
    const State state = m_state.load();
    for (State s : states)
        if (s == state)
            return true;
    return false;
}

const char* Stream::stateName(State state) {
    switch (state) {
    case State::Closed:
        return "closed";
    case State::Opening:
        return "opening";
    case State::Open:
        return "open";
    case State::Starting:
        return "starting";
    case State::Running:
        return "running";
    case State::Stopping:
        return "stopping";
    case State::Closing:
        return "closing";
    }
    return "unknown";
}

const char* Stream::operationName(Operation operation) {
    switch (operation) {
    case Operation::Open:
        return "open";
    case Operation::Start:
        return "start";
    case Operation::Stop:
        return "stop";
    case Operation::Close:
        return "close";
    }
    return "unknown";
}

void Stream::emitStreamData(std::shared_ptr<const StreamData> data) {
    m_health.noteData();
    signalStreamData.emitSignal(std::move(data));
}

bool Stream::onControlThread() const {
    return t_controlThreadOf == this;
}
bool Stream::onWorkerThread() const {
    return t_workerThreadOf == this;
}

std::future<bool> Stream::request(Operation operation, bool detached) {
    if ((operation == Operation::Stop || operation == Operation::Close) && onWorkerThread()) {
        // Asked from doWork: no further doWork; the worker leaves as soon as the current one returns.
        std::lock_guard<std::mutex> lock(m_workerMutex);
        m_workerExit = true;
    }
    Request request{operation, std::promise<bool>(), detached};
    std::future<bool> future = request.promise.get_future();
    {
        std::lock_guard<std::mutex> lock(m_controlMutex);
        if (m_controlExit) {
            request.promise.set_value(false); // being destroyed
            return future;
        }
        if (!m_controlThread.joinable())
            m_controlThread = std::thread([this] { controlLoop(); });
        m_requests.push_back(std::move(request));
    }
    m_controlWake.notify_one();
    return future;
}

bool Stream::requestAndWait(Operation operation) {
    if (onControlThread()) {
        KESTRION_LOG_ERROR(Category, "Stream '" << name() << "': " << operationName(operation)
                                                << "() cannot wait on the stream's own control thread; use "
                                                << operationName(operation) << "Async()");
        return false;
    }
    if (onWorkerThread()) {
        request(operation, true);
        return true;
    }
    if (operation == Operation::Close) {
        // A stream that never had a transition has no control thread and nothing to close; this
        // spares a thread to the destructor of streams that were never opened.
        std::lock_guard<std::mutex> lock(m_controlMutex);
        if (!m_controlThread.joinable() && m_state.load() == State::Closed)
            return true;
    }
    return request(operation, false).get();
}

void Stream::controlLoop() {
    t_controlThreadOf = this;
    std::unique_lock<std::mutex> lock(m_controlMutex);
    for (;;) {
        m_controlWake.wait(lock, [&] { return m_controlExit || !m_requests.empty(); });
        if (m_controlExit)
            return;
        Request request = std::move(m_requests.front());
        m_requests.pop_front();
        lock.unlock(); // transitions run unlocked so that new requests can be queued meanwhile
        m_closingItself = request.detached && request.operation == Operation::Close;
        try {
            request.promise.set_value(execute(request.operation));
            m_closingItself = false;
        } catch (...) {
            m_closingItself = false;
            if (request.detached)
                KESTRION_LOG_ERROR(Category, "Stream '" << name() << "': " << operationName(request.operation)
                                                        << " failed: " << describe(std::current_exception()));
            request.promise.set_exception(std::current_exception());
        }
        lock.lock();
    }
}

bool Stream::execute(Operation operation) {
    switch (operation) {
    case Operation::Open:
        return doOpen();
    case Operation::Start:
        return doStart();
    case Operation::Stop:
        return doStop();
    case Operation::Close:
        return doClose();
    }
    return false;
}

// The do* functions run on the control thread only, one at a time, so they see only the stable
// states Closed, Open and Running when they begin.

bool Stream::doOpen() {
    const State state = m_state.load();
    if (state == State::Open || state == State::Running)
        return true;
    setState(State::Opening);
    bool ok = false;
    try {
        ok = openImpl();
    } catch (...) {
        setState(State::Closed);
        throw;
    }
    setState(ok ? State::Open : State::Closed);
    return ok;
}

bool Stream::doStart() {
    const State state = m_state.load();
    if (state == State::Running)
        return true;
    if (state == State::Closed) {
        KESTRION_LOG_WARN(Category, "Stream '" << name() << "': cannot start a closed stream");
        return false;
    }
    setState(State::Starting);
    bool ok = false;
    try {
        ok = startImpl();
    } catch (...) {
        setState(State::Open);
        throw;
    }
    if (!ok) {
        setState(State::Open);
        return false;
    }
    // Running before the worker's first doWork, announced once the worker is there.
    m_health.noteStarted();
    m_state.store(State::Running);
    startWorker();
    signalStateChanged.emitSignal(State::Running);
    return true;
}

bool Stream::doStop() {
    const State state = m_state.load();
    if (state == State::Open)
        return true;
    if (state == State::Closed) {
        KESTRION_LOG_WARN(Category, "Stream '" << name() << "': cannot stop a closed stream");
        return false;
    }
    setState(State::Stopping);
    stopWorker();
    m_health.noteStopped();
    bool ok = false;
    try {
        ok = stopImpl();
    } catch (...) {
        m_health.noteStarted();
        m_state.store(State::Running);
        startWorker();
        signalStateChanged.emitSignal(State::Running);
        throw;
    }
    if (!ok) {
        m_health.noteStarted();
        m_state.store(State::Running);
        startWorker();
        signalStateChanged.emitSignal(State::Running);
        return false;
    }
    setState(State::Open);
    return true;
}

bool Stream::doClose() {
    if (m_state.load() == State::Closed)
        return true;
    if (m_state.load() == State::Running && !doStop())
        return false;
    setState(State::Closing);
    bool ok = false;
    try {
        ok = closeImpl();
    } catch (...) {
        setState(State::Open);
        throw;
    }
    setState(ok ? State::Closed : State::Open);
    return ok;
}

void Stream::setState(State state) {
    m_state.store(state);
    signalStateChanged.emitSignal(state);
}

void Stream::startWorker() {
    if (threadingMode() != WorkerThreadMode)
        return;
    {
        std::lock_guard<std::mutex> lock(m_workerMutex);
        m_workerExit = false;
    }
    m_worker = std::thread([this] { workerLoop(); });
}

void Stream::stopWorker() {
    {
        std::lock_guard<std::mutex> lock(m_workerMutex);
        m_workerExit = true;
    }
    m_workerWake.notify_all();
    if (m_worker.joinable())
        m_worker.join();
}

void Stream::workerLoop() {
    t_workerThreadOf = this;
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(m_workerMutex);
            if (m_workerExit)
                break;
        }
        std::optional<Clock::time_point> next;
        try {
            next = doWork();
        } catch (...) {
            KESTRION_LOG_ERROR(Category, "Stream '" << name()
                                                    << "': doWork threw an exception, the stream is stopped: "
                                                    << describe(std::current_exception()));
            request(Operation::Stop, true);
        }
        std::unique_lock<std::mutex> lock(m_workerMutex);
        // A round due already (a stream paced by its device) goes on without a wait.
        if (next && *next > Clock::now())
            m_workerWake.wait_until(lock, *next, [&] { return m_workerExit; });
        if (m_workerExit)
            break;
    }
    t_workerThreadOf = nullptr;
}

} // namespace Kestrion
