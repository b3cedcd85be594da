// Library handles, error texts and device enumeration of the C interface.

#include "simulator/src/Device.h"
#include "simulator/src/LibraryHandle.h"
#include "simulator/src/Simulator.h"

#include <ftkInterface.h>

#include <cstring>

using Kestrion::Simulator::Simulator;

extern "C" {

FTK_API ftkLibrary ftkInit() {
    return Simulator::instance().open();
}

FTK_API ftkError ftkClose(ftkLibrary* lib) {
    if (lib == nullptr || *lib == nullptr || !Simulator::instance().close(*lib)) {
        return ftkError::FTK_ERR_INV_PTR;
    }
    *lib = nullptr;
    return ftkError::FTK_OK;
}

FTK_API ftkError ftkGetLastErrorString(ftkLibrary lib, size_t strSize, char str[]) {
    const auto handle = Simulator::instance().find(lib);
    if (!handle) {
        return ftkError::FTK_ERR_INV_PTR;
    }
    if (str == nullptr || strSize == 0) {
        return ftkError::FTK_ERR_INV_PTR;
    }
    const std::string text = handle->errorText();
    const std::size_t n = std::min(text.size(), strSize - 1);
    std::memcpy(str, text.data(), n);
    str[n] = '\0';
    return ftkError::FTK_OK;
}

FTK_API ftkError ftkEnumerateDevices(ftkLibrary lib, ftkDeviceEnumCallback cb, void* user) {
    const auto handle = Simulator::instance().find(lib);
    if (!handle) {
        return ftkError::FTK_ERR_INV_PTR;
    }
    if (cb == nullptr) {
        return handle->report(ftkError::FTK_ERR_INV_PTR, "ftkEnumerateDevices needs a callback");
    }
    ftkError result = ftkError::FTK_OK;
    for (const auto& session : handle->sessions()) {
        auto& device = session->device();
        ftkError status = ftkError::FTK_OK;
        const bool report = device.enumerate(status);
        // The device lock is not held here: the callback may call back into the library.
        if (report) {
            cb(device.serial(), user, device.type());
        }
        if (status != ftkError::FTK_OK && (result == ftkError::FTK_OK || static_cast<int>(status) > 0)) {
            result = status;
        }
    }
    if (result != ftkError::FTK_OK) {
        handle->report(result, "Device enumeration reported a problem (simulated fault)");
    }
    return result;
}

} // extern "C"
