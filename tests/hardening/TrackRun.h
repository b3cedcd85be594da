#pragma once

#include "tests/hardening/ProcessRun.h"

#include <map>
#include <string>
#include <vector>

namespace Kestrion::HardeningTest {

/// Runs `kestrion track` with the arguments in the folder, with the table refreshed every 100 ms
/// and the build's plugins. The test program defines KESTRION_APP and KESTRION_PLUGIN_FOLDER.
inline ProcessResult track(const TemporaryFolder& folder, std::vector<std::string> arguments,
                           std::map<std::string, std::string> variables = {}) {
    arguments.insert(arguments.begin(), "track");
    arguments.insert(arguments.end(), {"--refresh", "100"});
    variables["KESTRION_PLUGIN_PATH"] = KESTRION_PLUGIN_FOLDER;
    return runProcess(KESTRION_APP, arguments, variables, folder.path());
}

} // namespace Kestrion::HardeningTest
