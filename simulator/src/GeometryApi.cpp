// Geometry registration of the C interface.

#include "simulator/src/ErrorCodes.h"
#include "simulator/src/LibraryHandle.h"
#include "simulator/src/Simulator.h"

#include <ftkInterface.h>

using Kestrion::Simulator::ErrorCodes;
using Kestrion::Simulator::Session;
using Kestrion::Simulator::Simulator;

extern "C" {

FTK_API ftkError ftkSetGeometry(ftkLibrary lib, uint64 sn, ftkGeometry* geometryIn) {
    const auto handle = Simulator::instance().find(lib);
    if (!handle) {
        return ftkError::FTK_ERR_INV_PTR;
    }
    if (geometryIn == nullptr) {
        return handle->report(ftkError::FTK_ERR_INV_PTR, "ftkSetGeometry needs a geometry");
    }
    Session* session = handle->session(sn);
    if (session == nullptr) {
        return handle->report(ftkError::FTK_ERR_INV_SN,
                              "No device with serial " + ErrorCodes::serialText(sn));
    }
    std::string message;
    const ftkError status = session->setGeometry(*geometryIn, message);
    return handle->report(status, message);
}

FTK_API ftkError ftkClearGeometry(ftkLibrary lib, uint64 sn, uint32 geometryId) {
    const auto handle = Simulator::instance().find(lib);
    if (!handle) {
        return ftkError::FTK_ERR_INV_PTR;
    }
    Session* session = handle->session(sn);
    if (session == nullptr) {
        return handle->report(ftkError::FTK_ERR_INV_SN,
                              "No device with serial " + ErrorCodes::serialText(sn));
    }
    std::string message;
    const ftkError status = session->clearGeometry(geometryId, message);
    return handle->report(status, message);
}

} // extern "C"
