// Option enumeration and access of the C interface. Serial 0 addresses the library's global
// options; a global option reached through a device serial works with FTK_WAR_OPT_GLOBAL_ONLY.

#include "simulator/src/Device.h"
#include "simulator/src/ErrorCodes.h"
#include "simulator/src/LibraryHandle.h"
#include "simulator/src/Simulator.h"

#include <ftkInterface.h>

#include <string>
#include <vector>

using Kestrion::Simulator::ErrorCodes;
using Kestrion::Simulator::LibraryHandle;
using Kestrion::Simulator::OptionTable;
using Kestrion::Simulator::Session;
using Kestrion::Simulator::Simulator;

namespace {

std::string globalFailure(ftkError status, std::uint32_t id) {
    const char* name = ErrorCodes::name(status);
    return std::string(name ? name : "Error") + " on global option " + std::to_string(id);
}

/// Runs `onGlobal(table)` for serial 0 (or a global id through a device serial), else
/// `onDevice(session)`; reports failures on the handle.
template <typename OnGlobal, typename OnDevice>
ftkError optionCall(ftkLibrary lib, uint64 sn, uint32 optID, const void* out, OnGlobal onGlobal,
                    OnDevice onDevice) {
    const auto handle = Simulator::instance().find(lib);
    if (!handle) {
        return ftkError::FTK_ERR_INV_PTR;
    }
    if (out == nullptr) {
        return handle->report(ftkError::FTK_ERR_INV_PTR,
                              "Null value pointer for option " + std::to_string(optID));
    }
    bool globalId = false;
    {
        auto lock = handle->globalsLock();
        globalId = handle->globals().find(optID) != nullptr;
    }
    Session* session = sn == 0 ? nullptr : handle->session(sn);
    if (sn != 0 && session == nullptr) {
        return handle->report(ftkError::FTK_ERR_INV_SN,
                              "No device with serial " + ErrorCodes::serialText(sn));
    }
    if (sn == 0 || globalId) {
        ftkError status = ftkError::FTK_OK;
        {
            auto lock = handle->globalsLock();
            status = onGlobal(handle->globals());
        }
        if (status == ftkError::FTK_OK && sn != 0) {
            status = ftkError::FTK_WAR_OPT_GLOBAL_ONLY;
            return handle->report(status, "Option " + std::to_string(optID) + " is global; use serial 0");
        }
        return handle->report(status, globalFailure(status, optID));
    }
    std::string message;
    const ftkError status = onDevice(*session, message);
    return handle->report(status, message);
}

} // namespace

extern "C" {

FTK_API ftkError ftkEnumerateOptions(ftkLibrary lib, uint64 sn, ftkOptionsEnumCallback cb, void* user) {
    const auto handle = Simulator::instance().find(lib);
    if (!handle) {
        return ftkError::FTK_ERR_INV_PTR;
    }
    if (cb == nullptr) {
        return handle->report(ftkError::FTK_ERR_INV_PTR, "ftkEnumerateOptions needs a callback");
    }
    std::vector<ftkOptionsInfo> infos;
    ftkError status = ftkError::FTK_OK;
    if (sn == 0) {
        auto lock = handle->globalsLock();
        for (const auto& d : handle->globals().definitions()) {
            ftkOptionsInfo info{};
            info.id = d.id;
            info.component = d.component;
            info.status.read = d.read ? 1u : 0u;
            info.status.write = d.write ? 1u : 0u;
            info.status.globalOption = 1u;
            info.type = d.type;
            info.name = d.name.c_str();
            info.description = d.description.c_str();
            info.unit = d.unit.c_str();
            infos.push_back(info);
        }
    } else {
        Session* session = handle->session(sn);
        if (session == nullptr) {
            return handle->report(ftkError::FTK_ERR_INV_SN,
                                  "No device with serial " + ErrorCodes::serialText(sn));
        }
        status = session->device().optionInfos(infos);
    }
    // Callbacks run without any lock held: they may call back into the library.
    for (ftkOptionsInfo& info : infos) {
        cb(sn, user, &info);
    }
    return handle->report(status, "Option enumeration of device " + ErrorCodes::serialText(sn) +
                                      " reported a problem");
}

FTK_API ftkError ftkGetInt32(ftkLibrary lib, uint64 sn, uint32 optID, int32* out, ftkOptionGetter what) {
    return optionCall(
        lib, sn, optID, out, [&](OptionTable& t) { return t.getInt(optID, what, *out); },
        [&](Session& s, std::string& m) { return s.device().getInt(optID, what, *out, m); });
}

FTK_API ftkError ftkSetInt32(ftkLibrary lib, uint64 sn, uint32 optID, int32 val) {
    return optionCall(
        lib, sn, optID, &val, [&](OptionTable& t) { return t.setInt(optID, val); },
        [&](Session& s, std::string& m) { return s.device().setInt(optID, val, m); });
}

FTK_API ftkError ftkGetFloat32(ftkLibrary lib, uint64 sn, uint32 optID, float32* out, ftkOptionGetter what) {
    return optionCall(
        lib, sn, optID, out, [&](OptionTable& t) { return t.getFloat(optID, what, *out); },
        [&](Session& s, std::string& m) { return s.device().getFloat(optID, what, *out, m); });
}

FTK_API ftkError ftkSetFloat32(ftkLibrary lib, uint64 sn, uint32 optID, float32 val) {
    return optionCall(
        lib, sn, optID, &val, [&](OptionTable& t) { return t.setFloat(optID, val); },
        [&](Session& s, std::string& m) { return s.device().setFloat(optID, val, m); });
}

FTK_API ftkError ftkGetData(ftkLibrary lib, uint64 sn, uint32 optID, ftkBuffer* buffer) {
    return optionCall(
        lib, sn, optID, buffer, [&](OptionTable& t) { return t.getData(optID, *buffer); },
        [&](Session& s, std::string& m) { return s.device().getData(optID, *buffer, m); });
}

FTK_API ftkError ftkSetData(ftkLibrary lib, uint64 sn, uint32 optID, ftkBuffer* buffer) {
    return optionCall(
        lib, sn, optID, buffer, [&](OptionTable& t) { return t.setData(optID, *buffer); },
        [&](Session& s, std::string& m) { return s.device().setData(optID, *buffer, m); });
}

} // extern "C"
