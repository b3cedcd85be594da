#include "host/apps/kestrion/PendingRows.h"

#include "recording/PartFile.h"

#include <cerrno>
#include <cstdio>
#include <unistd.h>

namespace Kestrion::Cli {

namespace {
/// An append hands the rows over by itself beyond this, whatever the command's pace.
constexpr std::size_t FlushAt = 1 << 20;
} // namespace

PendingRows::PendingRows(Recording::PartFile& file, std::string unit)
    : m_file(file)
    , m_unit(std::move(unit)) {}

void PendingRows::append(const char* text, std::size_t size, std::uint64_t rows) {
    if (m_file.failed())
        return;
    m_pending.append(text, size);
    m_pendingRows += rows;
    if (m_pending.size() >= FlushAt)
        flush();
}

bool PendingRows::flush() {
    if (m_file.failed() || !m_file.isOpen())
        return false;
    const int fd = ::fileno(m_file.stream());
    if (m_bytesOnDisk < 0) {
        // What the stream holds (the header) goes first; from here on the rows bypass its buffer.
        if (std::fflush(m_file.stream()) != 0)
            return m_file.fail("write failed after 0 " + m_unit, errno);
        m_bytesOnDisk = ::lseek(fd, 0, SEEK_END);
        if (m_bytesOnDisk < 0)
            return m_file.fail("cannot write", errno);
    }
    std::size_t written = 0;
    while (written < m_pending.size()) {
        const ssize_t n = ::write(fd, m_pending.data() + written, m_pending.size() - written);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            const int error = n < 0 ? errno : ENOSPC;
            // The rows that went out in part are cut off: the file ends with its last whole row.
            if (::ftruncate(fd, m_bytesOnDisk) == 0)
                ::lseek(fd, m_bytesOnDisk, SEEK_SET);
            m_pending.clear();
            return m_file.fail("write failed after " + std::to_string(m_rowsOnDisk) + " " + m_unit, error);
        }
        written += static_cast<std::size_t>(n);
    }
    m_bytesOnDisk += static_cast<long long>(written);
    m_rowsOnDisk += m_pendingRows;
    m_pendingRows = 0;
    m_pending.clear();
    return true;
}

} // namespace Kestrion::Cli
