#include "host/apps/kestrion/OutputPath.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fnmatch.h>
#include <system_error>
#include <unistd.h>

namespace Kestrion::Cli {

namespace fs = std::filesystem;

namespace {

/// The folder a relative file name lies in: "." for a bare name.
fs::path parentOf(const fs::path& path) {
    const fs::path parent = path.parent_path();
    return parent.empty() ? fs::path(".") : parent;
}

/// Why the current user cannot add entries to `folder`, or "" when it can.
std::string notWritable(const fs::path& folder) {
    if (::access(folder.c_str(), W_OK | X_OK) == 0)
        return "";
    return std::strerror(errno);
}

} // namespace

OutputPath::OutputPath(std::string what, std::string path, Kind kind)
    : m_what(std::move(what))
    , m_path(std::move(path))
    , m_kind(kind) {}

bool OutputPath::fail(const std::string& problem) {
    m_error = m_what + " " + m_path + ": " + problem;
    return false;
}

bool OutputPath::check(bool replace) {
    m_error.clear();
    if (m_path.empty()) {
        m_error = m_what + ": no path given";
        return false;
    }
    return m_kind == Kind::File ? checkFile(replace) : checkFolder(replace);
}

bool OutputPath::checkFile(bool replace) {
    std::error_code error;
    const fs::file_status status = fs::status(m_path, error);
    if (fs::is_directory(status))
        return fail("is a folder; give a file name");
    if (fs::exists(status)) {
        if (!fs::is_regular_file(status))
            return fail("exists and is not a regular file");
        if (!replace)
            return fail("exists; give --force to replace it");
    }
    // The partial file of an earlier run that did not end (killed, or out of disk space).
    const std::string part = m_path + ".part";
    const fs::file_status partStatus = fs::symlink_status(part, error);
    if (fs::exists(partStatus)) {
        if (!fs::is_regular_file(partStatus))
            return fail(part + " exists and is not a regular file");
        if (!replace)
            return fail(part + " exists, left by an earlier run; give --force to replace it");
    }
    const fs::path parent = parentOf(m_path);
    const fs::file_status parentStatus = fs::status(parent, error);
    if (!fs::exists(parentStatus))
        return fail("the folder " + parent.string() + " does not exist");
    if (!fs::is_directory(parentStatus))
        return fail(parent.string() + " is not a folder");
    const std::string why = notWritable(parent);
    if (!why.empty())
        return fail("cannot write in the folder " + parent.string() + ": " + why);
    return true;
}

bool OutputPath::checkFolder(bool replace) {
    std::error_code error;
    const fs::file_status status = fs::status(m_path, error);
    if (fs::exists(status) && !fs::is_directory(status))
        return fail("is a file, not a folder");
    if (!fs::exists(status)) {
        // Created later: the nearest existing ancestor must be a folder we may write in.
        fs::path ancestor = fs::absolute(m_path, error).lexically_normal();
        while (ancestor.has_relative_path() && !fs::exists(fs::status(ancestor, error)))
            ancestor = ancestor.parent_path();
        if (!fs::is_directory(fs::status(ancestor, error)))
            return fail("cannot be created: " + ancestor.string() + " is not a folder");
        const std::string why = notWritable(ancestor);
        if (!why.empty())
            return fail("cannot be created in " + ancestor.string() + ": " + why);
        return true;
    }
    if (!notWritable(m_path).empty())
        return fail("not a writable folder");
    if (replace)
        return true;
    std::string earliest;
    for (const auto& entry : fs::directory_iterator(m_path, error)) {
        const std::string name = entry.path().filename().string();
        bool matches = m_patterns.empty();
        for (const auto& pattern : m_patterns)
            matches = matches || ::fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
        if (matches && (earliest.empty() || name < earliest))
            earliest = name;
    }
    if (error)
        return fail("cannot be read: " + error.message());
    if (!earliest.empty())
        return fail("holds the output of an earlier run (" + earliest +
                    "); choose an empty or new folder, or give --force to replace it");
    return true;
}

bool OutputPath::removeEarlierPart() {
    std::error_code error;
    if (m_kind != Kind::File || !fs::is_regular_file(fs::symlink_status(m_path + ".part", error)))
        return true;
    if (!fs::remove(m_path + ".part", error) && error)
        return fail("cannot replace " + m_path + ".part: " + error.message());
    return true;
}

bool OutputPath::create() {
    if (m_kind != Kind::Folder)
        return true;
    std::vector<std::string> missing;
    std::error_code error;
    for (fs::path folder = fs::absolute(m_path, error).lexically_normal();
         folder.has_relative_path() && !fs::exists(fs::status(folder, error)); folder = folder.parent_path())
        if (folder.has_filename())
            missing.push_back(folder.string());
    fs::create_directories(m_path, error);
    if (error)
        return fail("cannot be created: " + error.message());
    m_created.insert(m_created.end(), missing.begin(), missing.end());
    return true;
}

void OutputPath::removeIfUnused() {
    std::error_code error;
    for (const auto& folder : m_created)
        if (fs::is_empty(folder, error) && !error)
            fs::remove(folder, error);
    m_created.clear();
}

} // namespace Kestrion::Cli
