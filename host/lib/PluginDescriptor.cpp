#include "host/lib/PluginDescriptor.h"

#include <cstring>

namespace Kestrion {

namespace {

// Keeps a reason readable when a library holds garbage where the descriptor should be.
std::string shortened(const std::string& text) {
    const std::size_t limit = 80;
    return text.size() <= limit ? text : text.substr(0, limit) + "...";
}

} // namespace

std::optional<PluginDescriptor> PluginDescriptor::parse(const char* text, std::string* error) {
    auto fail = [error](const std::string& reason) -> std::optional<PluginDescriptor> {
        if (error)
            *error = reason;
        return std::nullopt;
    };
    if (!text)
        return fail("plugin descriptor is a null pointer");
    const std::size_t length = ::strnlen(text, MaxLength + 1);
    if (length > MaxLength)
        return fail("plugin descriptor is longer than " + std::to_string(MaxLength) + " characters");

    const std::string all(text, length);
    PluginDescriptor descriptor;
    std::size_t start = 0;
    bool first = true;
    while (true) {
        const std::size_t bar = all.find('|', start);
        const std::string field =
            all.substr(start, bar == std::string::npos ? std::string::npos : bar - start);
        if (first) {
            descriptor.magic = field;
            first = false;
        } else {
            const std::size_t eq = field.find('=');
            if (eq == std::string::npos)
                return fail("malformed plugin descriptor field \"" + shortened(field) + "\"");
            descriptor.fields[field.substr(0, eq)] = field.substr(eq + 1);
        }
        if (bar == std::string::npos)
            break;
        start = bar + 1;
    }
    auto value = [&descriptor](const char* key) {
        const auto it = descriptor.fields.find(key);
        return it == descriptor.fields.end() ? std::string() : it->second;
    };
    descriptor.hostVersion = value("hostversion");
    descriptor.buildFlags = value("buildflags");
    descriptor.pluginVersion = value("pluginversion");
    return descriptor;
}

std::string PluginDescriptor::incompatibility() const {
    if (magic != MagicString)
        return "wrong magic string \"" + shortened(magic) + "\" (expected \"" + MagicString + "\")";
    if (fields.find("hostversion") == fields.end())
        return "plugin descriptor names no host version";
    if (hostVersion != HostVersion)
        return "built for host version " + shortened(hostVersion) + ", this host is " + HostVersion;
    return {};
}

} // namespace Kestrion
