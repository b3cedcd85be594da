#include "host/apps/kestrion/PivotOptions.h"

#include <cerrno>
#include <cstdlib>

namespace Kestrion::Cli {

std::optional<PivotOptions> PivotOptions::parse(const std::vector<std::string>& arguments,
                                                std::string* error) {
    PivotOptions options;
    auto fail = [error](const std::string& message) -> std::optional<PivotOptions> {
        if (error)
            *error = message;
        return std::nullopt;
    };
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& option = arguments[i];
        if (option == "--save") {
            options.save = true;
            continue;
        }
        if (option != "--geometry" && option != "--frames")
            return fail(option.rfind("-", 0) == 0 ? "unknown option '" + option + "'"
                                                  : "unexpected argument '" + option + "'");
        if (i + 1 >= arguments.size())
            return fail(option + " needs a value");
        const std::string& value = arguments[++i];
        if (option == "--geometry") {
            if (!options.geometry.empty())
                return fail("--geometry is given twice: one tool is calibrated at a time");
            if (value.empty())
                return fail("--geometry needs a file name");
            options.geometry = value;
            continue;
        }
        char* end = nullptr;
        errno = 0;
        const long long frames = std::strtoll(value.c_str(), &end, 10);
        if (value.empty() || *end != '\0' || errno != 0 || frames < 1 || frames > 100000)
            return fail("--frames must be a whole number from 1 to 100000, not '" + value + "'");
        options.frames = static_cast<std::size_t>(frames);
    }
    if (options.geometry.empty())
        return fail("--geometry FILE is required");
    if (options.save && options.geometry.rfind(":/", 0) == 0)
        return fail("--save needs a geometry file on disk, " + options.geometry + " is compiled in");
    return options;
}

} // namespace Kestrion::Cli
