#pragma once

#include <ftkInterface.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Kestrion::TestSupport {

/// An option as the SDK reports it, copied out of the enumeration callback.
struct ReportedOption {
    std::uint32_t id = 0;
    bool hasName = false;
    std::string name;
    std::string description;
    std::string unit;
};

/// Every option the SDK reports for `sn`, in its order, straight from ftkEnumerateOptions.
inline std::vector<ReportedOption> reportedOptions(ftkLibrary lib, std::uint64_t sn) {
    std::vector<ReportedOption> options;
    ftkEnumerateOptions(
        lib, sn,
        [](std::uint64_t, void* user, ftkOptionsInfo* info) {
            ReportedOption option;
            option.id = info->id;
            option.hasName = info->name != nullptr;
            option.name = info->name ? info->name : "";
            option.description = info->description ? info->description : "";
            option.unit = info->unit ? info->unit : "";
            static_cast<std::vector<ReportedOption>*>(user)->push_back(option);
        },
        &options);
    return options;
}

/// The first reported option of that name.
inline ReportedOption reportedOption(ftkLibrary lib, std::uint64_t sn, const std::string& name) {
    for (const ReportedOption& option : reportedOptions(lib, sn))
        if (option.name == name)
            return option;
    return {};
}

} // namespace Kestrion::TestSupport
