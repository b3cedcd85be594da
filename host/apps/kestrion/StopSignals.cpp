#include "host/apps/kestrion/StopSignals.h"

#include <atomic>
#include <csignal>

namespace Kestrion::Cli {

namespace {
// Set by the handler, read by the command's loop.
std::atomic<int> g_stopSignal{0};
static_assert(std::atomic<int>::is_always_lock_free, "used from a signal handler");

extern "C" void onStopSignal(int signal) {
    g_stopSignal.store(signal);
}
} // namespace

StopSignals::StopSignals() {
    g_stopSignal.store(0);
    m_int = std::signal(SIGINT, onStopSignal);
    m_term = std::signal(SIGTERM, onStopSignal);
}

StopSignals::~StopSignals() {
    std::signal(SIGINT, m_int);
    std::signal(SIGTERM, m_term);
}

int StopSignals::received() {
    return g_stopSignal.load();
}

} // namespace Kestrion::Cli
