#include "host/core/Directory.h"

#include "host/core/Log.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fnmatch.h>
#include <sys/stat.h>

namespace Kestrion::Filesystem {

namespace {
const char* const category = "Filesystem";
}

Directory::Directory(Path path)
    : m_path(std::move(path)) {}

bool Directory::exists() const {
    return m_path.isDirectory();
}

bool Directory::create() const {
    if (m_path.empty()) {
        KESTRION_LOG_ERROR(category, "Could not create folder: the path is empty");
        return false;
    }
    const Path target = m_path.absolute();
    // Walk down from the root, creating each missing element.
    std::string partial;
    std::size_t start = 1;
    while (start <= target.str().size()) {
        auto end = target.str().find('/', start);
        if (end == std::string::npos)
            end = target.str().size();
        partial = target.str().substr(0, end);
        if (::mkdir(partial.c_str(), 0777) != 0 && errno != EEXIST) {
            const int error = errno;
            KESTRION_LOG_ERROR(category, "Could not create folder '" << m_path.str() << "': " << partial
                                                                     << ": " << std::strerror(error));
            return false;
        }
        start = end + 1;
    }
    if (!target.isDirectory()) {
        KESTRION_LOG_ERROR(category, "Could not create folder '" << m_path.str()
                                                                 << "': a file of that name is in the way");
        return false;
    }
    return true;
}

std::vector<Path> Directory::files(const std::string& pattern) const {
    std::vector<Path> result;
    const std::string folder = m_path.empty() ? std::string(".") : m_path.str();
    DIR* handle = ::opendir(folder.c_str());
    if (!handle) {
        const int error = errno;
        if (error != ENOENT)
            KESTRION_LOG_ERROR(category,
                               "Could not list folder '" << folder << "': " << std::strerror(error));
        return result;
    }
    while (const dirent* entry = ::readdir(handle)) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        if (::fnmatch(pattern.c_str(), name.c_str(), FNM_PERIOD) != 0)
            continue;
        const Path file = m_path.join(name);
        if (file.isFile())
            result.push_back(file);
    }
    ::closedir(handle);
    std::sort(result.begin(), result.end());
    return result;
}

} // namespace Kestrion::Filesystem
