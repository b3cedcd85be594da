#include "host/core/Path.h"

#include <cerrno>
#include <cstdlib>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace Kestrion::Filesystem {

namespace {

// The text without trailing separators, keeping a lone "/".
std::string withoutTrailingSlashes(const std::string& text) {
    std::string result = text;
    while (result.size() > 1 && result.back() == '/')
        result.pop_back();
    return result;
}

bool statPath(const std::string& text, struct stat& info) {
    return !text.empty() && ::stat(text.c_str(), &info) == 0;
}

} // namespace

Path::Path(std::string text)
    : m_text(std::move(text)) {}

Path::Path(const char* text)
    : m_text(text ? text : "") {}

Path Path::join(const Path& other) const {
    if (other.empty())
        return *this;
    if (empty() || other.isAbsolute())
        return other;
    if (m_text.back() == '/')
        return Path(m_text + other.m_text);
    return Path(m_text + "/" + other.m_text);
}

Path Path::parent() const {
    const std::string text = withoutTrailingSlashes(m_text);
    const auto slash = text.rfind('/');
    if (slash == std::string::npos || text == "/")
        return Path();
    std::string folder = text.substr(0, slash);
    while (folder.size() > 1 && folder.back() == '/')
        folder.pop_back();
    return Path(folder.empty() ? std::string("/") : folder);
}

std::string Path::fileName() const {
    const std::string text = withoutTrailingSlashes(m_text);
    if (text == "/")
        return std::string();
    const auto slash = text.rfind('/');
    return slash == std::string::npos ? text : text.substr(slash + 1);
}

std::string Path::baseName() const {
    const std::string name = fileName();
    const auto dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0)
        return name;
    return name.substr(0, dot);
}

std::string Path::extension() const {
    const std::string name = fileName();
    const auto dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0)
        return std::string();
    return name.substr(dot + 1);
}

bool Path::isAbsolute() const {
    return !m_text.empty() && m_text.front() == '/';
}

Path Path::normalized() const {
    if (m_text.empty())
        return Path();
    const bool absolutePath = isAbsolute();
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (start <= m_text.size()) {
        auto end = m_text.find('/', start);
        if (end == std::string::npos)
            end = m_text.size();
        const std::string part = m_text.substr(start, end - start);
        if (part.empty() || part == ".") {
            // repeated separators and "." add nothing
        } else if (part == "..") {
            if (!parts.empty() && parts.back() != "..")
                parts.pop_back();
            else if (!absolutePath)
                parts.push_back(part); // a relative path may climb above its start
        } else {
            parts.push_back(part);
        }
        start = end + 1;
    }
    std::string result = absolutePath ? "/" : "";
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i > 0)
            result += '/';
        result += parts[i];
    }
    if (result.empty())
        result = ".";
    return Path(result);
}

Path Path::absolute() const {
    return absoluteFrom(currentDirectory());
}

Path Path::absoluteFrom(const Path& folder) const {
    if (isAbsolute())
        return normalized();
    const Path base = folder.isAbsolute() ? folder : currentDirectory().join(folder);
    return base.join(*this).normalized();
}

bool Path::exists() const {
    struct stat info;
    return statPath(m_text, info);
}

bool Path::isFile() const {
    struct stat info;
    return statPath(m_text, info) && S_ISREG(info.st_mode);
}

bool Path::isDirectory() const {
    struct stat info;
    return statPath(m_text, info) && S_ISDIR(info.st_mode);
}

Path Path::currentDirectory() {
    std::vector<char> buffer(4096);
    while (::getcwd(buffer.data(), buffer.size()) == nullptr) {
        if (errno != ERANGE)
            return Path(".");
        buffer.resize(buffer.size() * 2);
    }
    return Path(std::string(buffer.data()));
}

Path Path::homeDirectory() {
    if (const char* home = std::getenv("HOME"); home && *home)
        return Path(home);
    // getpwuid_r: getpwuid's static result is shared between threads.
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer(16384);
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found && found->pw_dir)
        return Path(found->pw_dir);
    return Path();
}

} // namespace Kestrion::Filesystem
