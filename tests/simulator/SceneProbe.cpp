// Opens the simulated camera library the way an application does, in a process of its own (the
// scene is chosen once per process): prints whether ftkInit succeeded, the devices and the
// control error text.

#include "simulator/control/ftkSimulator.h"

#include <ftkInterface.h>

#include <cstdio>

int main() {
    ftkLibrary lib = ftkInit();
    if (lib == nullptr) {
        char error[1024];
        ftkSimGetLastError(error, sizeof(error));
        std::printf("ftkInit failed: %s\n", error);
        return 1;
    }
    ftkEnumerateDevices(
        lib,
        [](uint64 sn, void*, ftkDeviceType type) {
            std::printf("device %llx type %d\n", (unsigned long long)sn, int(type));
        },
        nullptr);
    ftkClose(&lib);
    return 0;
}
