#include "recording/PartFile.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace Kestrion::Recording {

PartFile::~PartFile() {
    if (m_file)
        std::fclose(m_file);
}

bool PartFile::fail(const std::string& what, int errorNumber) {
    if (m_error.empty())
        m_error = m_kind + " " + m_target + ": " + what + ": " + std::strerror(errorNumber);
    return false;
}

bool PartFile::open(const std::string& file, bool replace) {
    m_target = file;
    m_partialFile = file + ".part";
    if (!replace && ::access(file.c_str(), F_OK) == 0)
        return fail("cannot record over an existing file", EEXIST);
    // Exclusive creation: a file of that name that exists is someone else's, never overwritten.
    m_file = std::fopen(m_partialFile.c_str(), "wx");
    if (!m_file)
        return fail("cannot create " + m_partialFile, errno);
    m_buffer.resize(1 << 20);
    std::setvbuf(m_file, m_buffer.data(), _IOFBF, m_buffer.size());
    return true;
}

void PartFile::discard(bool unused) {
    if (!m_file)
        return;
    std::fclose(m_file);
    m_file = nullptr;
    if (unused)
        std::remove(m_partialFile.c_str());
}

bool PartFile::complete() {
    if (!m_file)
        return !failed();
    bool ok = !failed();
    if (std::fflush(m_file) != 0)
        ok = fail("write failed", errno);
    if (ok && ::fsync(::fileno(m_file)) != 0)
        ok = fail("cannot flush to disk", errno);
    if (std::fclose(m_file) != 0 && ok)
        ok = fail("cannot close", errno);
    m_file = nullptr;
    if (ok && std::rename(m_partialFile.c_str(), m_target.c_str()) != 0)
        ok = fail("cannot rename " + m_partialFile + " to it", errno);
    return ok;
}

} // namespace Kestrion::Recording
