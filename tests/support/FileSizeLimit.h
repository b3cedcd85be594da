#pragma once

#include <csignal>

#include <sys/resource.h>

namespace Kestrion::TestSupport {

/// While it lives, files this process writes cannot grow past `bytes`: writes beyond fail with
/// EFBIG (the signal that would end the process is ignored meanwhile), as on a full disk. It holds
/// for root too. `applied` says whether the limit could be set.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        ::getrlimit(RLIMIT_FSIZE, &m_previous);
        m_handler = std::signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = m_previous;
        limit.rlim_cur = bytes;
        applied = ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &m_previous);
        std::signal(SIGXFSZ, m_handler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

    bool applied = false;

private:
    struct rlimit m_previous {};
    void (*m_handler)(int) = nullptr;
};

} // namespace Kestrion::TestSupport
