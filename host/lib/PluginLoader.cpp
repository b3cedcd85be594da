#include "host/lib/PluginLoader.h"

#include "host/core/Log.h"
#include "host/lib/KestrionLibPlugin.h"
#include "host/lib/PluginAutoRegistrationGuard.h"
#include "host/lib/PluginDependencyOrder.h"
#include "host/lib/PluginDescriptor.h"
#include "host/lib/PluginExport.h"
#include "host/lib/PluginRegistrationScope.h"
#include "host/lib/PluginRegistrations.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>

namespace Kestrion {

namespace {

const char* const Category = "PluginLoader";

bool isLibraryName(const std::string& name) {
    const auto so = name.find(".so");
    return so != std::string::npos && so > 0 && (so + 3 == name.size() || name.compare(so + 3, 1, ".") == 0);
}

std::string joined(const std::vector<std::string>& items, const char* separator) {
    std::string text;
    for (std::size_t i = 0; i < items.size(); ++i)
        text += (i ? separator : "") + items[i];
    return text;
}

std::string currentException() {
    try {
        throw;
    } catch (const std::exception& e) {
        return e.what();
    } catch (...) {
        return "unknown exception";
    }
}

} // namespace

const char* toString(PluginStatus status) {
    switch (status) {
    case PluginStatus::Active:
        return "active";
    case PluginStatus::Inactive:
        return "inactive";
    case PluginStatus::Failed:
        return "failed";
    }
    return "?";
}

struct PluginLoader::Candidate {
    std::size_t record = 0; // index into m_records
    void* handle = nullptr;
    std::unique_ptr<KestrionLibPlugin> plugin;
};

PluginLoader::~PluginLoader() {
    unload();
}

std::vector<std::string> PluginLoader::defaultFolders() {
    std::vector<std::string> folders;
    const char* env = std::getenv("KESTRION_PLUGIN_PATH");
    if (env && *env) {
        std::stringstream list(env);
        std::string folder;
        while (std::getline(list, folder, ':'))
            if (!folder.empty())
                folders.push_back(folder);
        return folders;
    }
    std::error_code ec;
    const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    folders.push_back(ec ? std::string("plugins") : (exe.parent_path() / "plugins").string());
    return folders;
}

const std::set<std::string>& PluginLoader::builtInPluginIds() {
    static const std::set<std::string> ids{"Kestrion.Stream"};
    return ids;
}

const PluginRecord* PluginLoader::find(const std::string& id) const {
    for (const auto& record : m_records)
        if (record.id == id && record.plugin)
            return &record;
    return nullptr;
}

std::vector<const PluginRecord*> PluginLoader::initialised() const {
    std::vector<const PluginRecord*> result;
    for (const auto& record : m_records)
        if (record.status == PluginStatus::Active)
            result.push_back(&record);
    std::sort(result.begin(), result.end(),
              [](const PluginRecord* a, const PluginRecord* b) { return a->initOrder < b->initOrder; });
    return result;
}

bool PluginLoader::load(const std::vector<std::string>& folders) {
    bool ok = true;
    std::vector<Candidate> candidates;
    for (const auto& folder : folders)
        loadFolder(folder, candidates, ok);
    initialise(candidates);
    return ok;
}

void PluginLoader::loadFolder(const std::string& folder, std::vector<Candidate>& candidates, bool& ok) {
    namespace fs = std::filesystem;
    std::error_code ec;
    if (!fs::is_directory(folder, ec)) {
        KESTRION_LOG_ERROR(
            Category,
            "Plugin folder " << folder << (fs::exists(folder, ec) ? " is not a folder" : " does not exist"));
        ok = false;
        return;
    }
    std::vector<fs::path> files;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        const std::string name = it->path().filename().string();
        std::error_code typeError;
        if (isLibraryName(name) && fs::is_regular_file(it->path(), typeError))
            files.push_back(it->path());
        else
            KESTRION_LOG_DEBUG(Category, "Not a plugin library, ignored: " << it->path().string());
    }
    if (ec) {
        KESTRION_LOG_ERROR(Category, "Plugin folder " << folder << " cannot be listed: " << ec.message());
        ok = false;
        return;
    }
    std::sort(files.begin(), files.end());
    if (files.empty())
        KESTRION_LOG_INFO(Category, "No plugin libraries in " << folder);
    for (const auto& file : files) {
        PluginRecord record;
        record.fileName = file.filename().string();
        record.path = file.string();
        m_records.push_back(std::move(record));
        Candidate candidate;
        candidate.record = m_records.size() - 1;
        if (open(candidate, candidates))
            candidates.push_back(std::move(candidate));
    }
}

void PluginLoader::fail(Candidate& candidate, const std::string& reason) {
    PluginRecord& record = m_records[candidate.record];
    record.status = PluginStatus::Failed;
    record.reason = reason;
    record.plugin = nullptr;
    KESTRION_LOG_ERROR(Category, "Plugin " << record.fileName << " skipped: " << reason);
    if (candidate.plugin) {
        // The plugin may have registered something before failing; its code goes away next.
        PluginRegistrations::removeAll(record.id);
        candidate.plugin.reset();
    }
    if (candidate.handle) {
        ::dlclose(candidate.handle);
        candidate.handle = nullptr;
    }
}

bool PluginLoader::open(Candidate& candidate, std::vector<Candidate>& candidates) {
    PluginRecord& record = m_records[candidate.record];
    const auto guardsBefore = PluginAutoRegistrationGuard::constructionCount();
    candidate.handle = ::dlopen(record.path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!candidate.handle) {
        const char* error = ::dlerror();
        fail(candidate, std::string("not a loadable library: ") + (error ? error : "unknown error"));
        return false;
    }
    record.announcedIds = PluginAutoRegistrationGuard::announcedSince(guardsBefore);

    ::dlerror();
    void* descriptorSymbol = ::dlsym(candidate.handle, PluginDescriptor::SymbolName);
    if (!descriptorSymbol) {
        fail(candidate,
             std::string("no plugin descriptor (symbol ") + PluginDescriptor::SymbolName + " not found)");
        return false;
    }
    std::string error;
    const auto descriptor =
        PluginDescriptor::parse(*static_cast<const char* const*>(descriptorSymbol), &error);
    if (!descriptor) {
        fail(candidate, error);
        return false;
    }
    record.hostVersion = descriptor->hostVersion;
    record.buildFlags = descriptor->buildFlags;
    record.pluginVersion = descriptor->pluginVersion;
    const std::string incompatibility = descriptor->incompatibility();
    if (!incompatibility.empty()) {
        fail(candidate, incompatibility);
        return false;
    }
    KESTRION_LOG_DEBUG(Category, "Plugin " << record.fileName << " built with flags \"" << record.buildFlags
                                           << "\" (not checked)");

    const auto create =
        reinterpret_cast<CreatePluginFunction>(::dlsym(candidate.handle, "kestrionCreatePlugin"));
    if (!create) {
        fail(candidate, "missing entry point kestrionCreatePlugin");
        return false;
    }
    const auto idFunction = reinterpret_cast<PluginIdFunction>(::dlsym(candidate.handle, "kestrionPluginId"));
    if (!idFunction) {
        fail(candidate, "missing entry point kestrionPluginId");
        return false;
    }
    try {
        const char* id = idFunction();
        record.id = id ? id : "";
    } catch (...) {
        fail(candidate, "kestrionPluginId() threw: " + currentException());
        return false;
    }
    if (record.id.empty()) {
        fail(candidate, "kestrionPluginId() returned no id");
        return false;
    }
    if (!record.announcedIds.empty() && std::find(record.announcedIds.begin(), record.announcedIds.end(),
                                                  record.id) == record.announcedIds.end())
        KESTRION_LOG_WARN(Category, "Plugin " << record.fileName << " announced "
                                              << joined(record.announcedIds, ", ") << " but its id is "
                                              << record.id);
    const PluginRecord* existing = find(record.id);
    for (const auto& other : candidates)
        if (m_records[other.record].id == record.id)
            existing = &m_records[other.record];
    if (existing || builtInPluginIds().count(record.id)) {
        const std::string where = existing ? existing->fileName : std::string("the host");
        // The library may share code with the one already loaded; close it without creating a plugin.
        fail(candidate, "plugin id \"" + record.id + "\" is already provided by " + where);
        return false;
    }

    try {
        candidate.plugin.reset(create());
    } catch (...) {
        fail(candidate, "kestrionCreatePlugin() threw: " + currentException());
        return false;
    }
    if (!candidate.plugin) {
        fail(candidate, "kestrionCreatePlugin() returned no plugin");
        return false;
    }
    try {
        record.author = candidate.plugin->author();
        record.description = candidate.plugin->description();
        record.dependencies = candidate.plugin->dependencies();
        const std::string objectId = candidate.plugin->id();
        if (objectId != record.id)
            KESTRION_LOG_WARN(Category, "Plugin " << record.fileName << ": id() returns \"" << objectId
                                                  << "\" but kestrionPluginId() returns \"" << record.id
                                                  << "\"");
    } catch (...) {
        fail(candidate, "plugin identity threw: " + currentException());
        return false;
    }
    return true;
}

void PluginLoader::initialise(std::vector<Candidate>& candidates) {
    std::set<std::string> available = builtInPluginIds();
    for (const auto& record : m_records)
        if (record.status == PluginStatus::Active && record.plugin)
            available.insert(record.id);

    std::vector<PluginDependencyOrder::Node> nodes;
    for (const auto& candidate : candidates)
        nodes.push_back({m_records[candidate.record].id, m_records[candidate.record].dependencies});
    const auto order = PluginDependencyOrder::compute(nodes, available);
    // Failures in input order, so that the log reads like the folder listing.
    for (const auto& [index, reason] : order.failures)
        fail(candidates[index], reason);

    for (std::size_t index : order.order) {
        Candidate& candidate = candidates[index];
        PluginRecord& record = m_records[candidate.record];
        std::string inactiveDependency;
        for (const auto& dependency : record.dependencies)
            if (!available.count(dependency)) {
                inactiveDependency = dependency;
                break;
            }
        if (!inactiveDependency.empty()) {
            fail(candidate, "dependency \"" + inactiveDependency + "\" is not active");
            continue;
        }

        int result = -1;
        record.initOrder = m_nextInitOrder++;
        try {
            PluginRegistrationScope scope(record.id);
            result = candidate.plugin->init();
        } catch (...) {
            fail(candidate, "init() threw: " + currentException());
            continue;
        }
        if (result != 0 && result != 1) {
            fail(candidate, "init() returned " + std::to_string(result));
            continue;
        }
        record.plugin = candidate.plugin.release();
        m_handles.push_back(candidate.handle);
        candidate.handle = nullptr;
        if (result == 0) {
            record.status = PluginStatus::Active;
            available.insert(record.id);
            KESTRION_LOG_INFO(Category, "Loaded plugin " << record.id << " from " << record.fileName);
        } else {
            record.status = PluginStatus::Inactive;
            record.reason = "init() returned 1, the plugin stays inactive";
            if (PluginRegistrations::removeAll(record.id) > 0)
                KESTRION_LOG_WARN(Category, "Plugin "
                                                << record.fileName
                                                << " registered factories or conversions although inactive; "
                                                   "they were removed");
            KESTRION_LOG_WARN(Category, "Plugin " << record.fileName << " inactive: " << record.reason);
        }
    }
}

void PluginLoader::unload() {
    std::vector<PluginRecord*> owned;
    for (auto& record : m_records)
        if (record.plugin)
            owned.push_back(&record);
    std::sort(owned.begin(), owned.end(),
              [](const PluginRecord* a, const PluginRecord* b) { return a->initOrder > b->initOrder; });
    for (PluginRecord* record : owned) {
        PluginRegistrations::removeAll(record->id);
        delete record->plugin;
        record->plugin = nullptr;
    }
    for (auto it = m_handles.rbegin(); it != m_handles.rend(); ++it)
        ::dlclose(*it);
    m_handles.clear();
}

} // namespace Kestrion
