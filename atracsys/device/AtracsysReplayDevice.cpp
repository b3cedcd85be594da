#include "atracsys/device/AtracsysReplayDevice.h"

#include <ftkInterface.h>

#include <dlfcn.h>

#include <vector>

namespace Kestrion::SpryTrack {

namespace {

// The simulated camera library's control functions, as its control header declares them.
using LoadReplay = bool (*)(const char* path, bool matchMarkers);
using LastError = std::size_t (*)(char* buffer, std::size_t size);

/// A function of the camera library the plugin calls ftkInit in; null when it has none.
void* cameraLibraryFunction(const char* name) {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&ftkInit), &info) == 0 || !info.dli_fname)
        return nullptr;
    // Already loaded (the plugin links it): this only takes another reference, given back below.
    void* library = dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
    if (!library)
        return nullptr;
    void* function = dlsym(library, name);
    dlclose(library);
    return function;
}

} // namespace

bool AtracsysReplayDevice::available() {
    return cameraLibraryFunction("ftkSimLoadReplay") != nullptr;
}

bool AtracsysReplayDevice::load(const std::string& file, bool matchMarkers, std::string& error) {
    const auto load = reinterpret_cast<LoadReplay>(cameraLibraryFunction("ftkSimLoadReplay"));
    if (!load) {
        error = "the camera library in use cannot replay recordings (only the simulated camera's can)";
        return false;
    }
    if (load(file.c_str(), matchMarkers))
        return true;
    const auto lastError = reinterpret_cast<LastError>(cameraLibraryFunction("ftkSimGetLastError"));
    std::vector<char> text(1024, '\0');
    if (lastError && lastError(text.data(), text.size()) > 0)
        error = text.data();
    else
        error = "recording " + file + ": cannot be replayed";
    return false;
}

} // namespace Kestrion::SpryTrack
