#pragma once

namespace Kestrion::Cli {

/// Lets Ctrl-C (SIGINT) and SIGTERM end a command cleanly: while an object lives, either signal is
/// only noted, and the command's loop reads received() to stop; the previous handlers come back
/// when it is destroyed. One at a time per process.
class StopSignals {
public:
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    /// The signal received since the last object was created, or 0.
    static int received();

private:
    void (*m_int)(int);
    void (*m_term)(int);
};

} // namespace Kestrion::Cli
