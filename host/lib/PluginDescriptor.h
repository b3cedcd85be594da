#pragma once

#include <map>
#include <optional>
#include <string>

namespace Kestrion {

/// What a plugin library says about itself in its exported data symbol
/// `kestrionPluginDescriptor`: a `const char*` to a text of '|'-separated fields, the magic
/// string first, then "key=value" fields, for example
/// "__KESTRION_PLUGIN_V2_MAGIC_STRING__|hostversion=4.4.6|buildflags=GLIBCXX_DEBUG:_GLIBCXX_DEBUG|pluginversion=".
///
/// The host accepts a plugin whose magic string and host version equal its own. The build flags
/// (the standard-library flags the plugin was built with, ':'-separated) are recorded and shown
/// but not enforced. Unknown keys are kept and ignored.
struct PluginDescriptor {
    static constexpr const char* MagicString = "__KESTRION_PLUGIN_V2_MAGIC_STRING__";
    static constexpr const char* HostVersion = "4.4.6";
    static constexpr const char* SymbolName = "kestrionPluginDescriptor";
    /// Longest descriptor the host reads; a longer text is refused rather than read further.
    static constexpr std::size_t MaxLength = 4096;

    std::string magic;
    std::string hostVersion;
    std::string buildFlags;
    std::string pluginVersion;
    /// Every "key=value" field, including the ones above.
    std::map<std::string, std::string> fields;

    /// Splits the text into fields. Fails (nothing, *error set) for a null or overlong text or a
    /// field without '='. Does not judge the values: see incompatibility().
    static std::optional<PluginDescriptor> parse(const char* text, std::string* error = nullptr);

    /// Why this host cannot load the plugin ("" when it can): a wrong magic string, a missing or
    /// different host version.
    std::string incompatibility() const;
};

} // namespace Kestrion
