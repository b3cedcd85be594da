#include "host/core/File.h"

#include "host/core/Log.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Kestrion::Filesystem {

namespace {

const char* const category = "Filesystem";

void logWriteError(const Path& path, const std::string& reason) {
    KESTRION_LOG_ERROR(category, "Could not write file '" << path.str() << "': " << reason);
}

// Writes every byte, resuming after signals and short writes.
bool writeAll(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        data += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

// The file a symbolic link finally points to, so that writing replaces the file and keeps the link.
Path resolvedTarget(const Path& path) {
    struct stat info;
    if (::lstat(path.str().c_str(), &info) != 0 || !S_ISLNK(info.st_mode))
        return path;
    char buffer[PATH_MAX];
    if (::realpath(path.str().c_str(), buffer) == nullptr)
        return path; // a dangling link: renaming over it replaces the link itself
    return Path(std::string(buffer));
}

// Opens a new, uniquely named temporary file beside the target. Returns -1 with errno set.
int openTemporary(const Path& target, std::string& temporaryName) {
    static std::atomic<unsigned> counter{0};
    const Path folder = target.parent().empty() ? Path(".") : target.parent();
    for (int attempt = 0; attempt < 100; ++attempt) {
        temporaryName = folder
                            .join("." + target.fileName() + ".tmp-" + std::to_string(::getpid()) + "-" +
                                  std::to_string(counter.fetch_add(1)))
                            .str();
        // 0666 lets the umask decide the permissions, as for any newly created file.
        const int fd = ::open(temporaryName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0 || errno != EEXIST)
            return fd;
    }
    errno = EEXIST;
    return -1;
}

void syncFolder(const Path& target) {
    const Path folder = target.parent().empty() ? Path(".") : target.parent();
    const int fd = ::open(folder.str().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd); // makes the rename itself durable; a failure here loses nothing already written
        ::close(fd);
    }
}

} // namespace

bool File::writeText(const Path& path, const std::string& text, std::string* reason) {
    const auto failed = [&](const std::string& why) {
        logWriteError(path, why);
        if (reason)
            *reason = why;
        return false;
    };
    if (path.empty() || path.fileName().empty()) {
        return failed("the path does not name a file");
    }
    const Path target = resolvedTarget(path);
    std::string temporary;
    const int fd = openTemporary(target, temporary);
    if (fd < 0) {
        return failed(std::string("cannot create a file in its folder: ") + std::strerror(errno));
    }
    const auto fail = [&](const std::string& why) {
        ::unlink(temporary.c_str());
        return failed(why);
    };
    if (!writeAll(fd, text.data(), text.size())) {
        const int error = errno;
        ::close(fd);
        return fail(std::strerror(error));
    }
    struct stat existing;
    if (::stat(target.str().c_str(), &existing) == 0 && S_ISREG(existing.st_mode))
        ::fchmod(fd, existing.st_mode & 07777); // best effort: the content matters more than the mode
    if (::fsync(fd) != 0) {
        const int error = errno;
        ::close(fd);
        return fail(std::strerror(error));
    }
    if (::close(fd) != 0)
        return fail(std::strerror(errno));
    if (::rename(temporary.c_str(), target.str().c_str()) != 0)
        return fail(std::string("cannot replace it: ") + std::strerror(errno));
    syncFolder(target);
    return true;
}

std::optional<std::string> File::readText(const Path& path, std::string* reason) {
    const auto fail = [&](int error) {
        const std::string why = std::strerror(error);
        KESTRION_LOG_ERROR(category, "Could not read file '" << path.str() << "': " << why);
        if (reason)
            *reason = why;
        return std::nullopt;
    };
    const int fd = ::open(path.str().c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return fail(errno);
    std::string content;
    char buffer[65536];
    for (;;) {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got == 0)
            break;
        if (got < 0) {
            if (errno == EINTR)
                continue;
            const int error = errno;
            ::close(fd);
            return fail(error);
        }
        content.append(buffer, static_cast<std::size_t>(got));
    }
    ::close(fd);
    return content;
}

bool File::remove(const Path& path) {
    if (::unlink(path.str().c_str()) == 0 || errno == ENOENT)
        return true;
    KESTRION_LOG_ERROR(category, "Could not remove file '" << path.str() << "': " << std::strerror(errno));
    return false;
}

} // namespace Kestrion::Filesystem
