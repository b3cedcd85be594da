// Frame records and frame acquisition of the C interface.

#include "simulator/src/ErrorCodes.h"
#include "simulator/src/FrameRecord.h"
#include "simulator/src/LibraryHandle.h"
#include "simulator/src/Simulator.h"

#include <ftkInterface.h>

using Kestrion::Simulator::ErrorCodes;
using Kestrion::Simulator::FrameRecord;
using Kestrion::Simulator::Session;
using Kestrion::Simulator::Simulator;

extern "C" {

FTK_API ftkFrameQuery* ftkCreateFrame() {
    return FrameRecord::create();
}

FTK_API ftkError ftkSetFrameOptions(bool pixels, uint32 eventsSize, uint32 leftRawDataSize,
                                    uint32 rightRawDataSize, uint32 threeDFiducialsSize, uint32 markersSize,
                                    ftkFrameQuery* frame) {
    FrameRecord* record = FrameRecord::find(frame);
    if (record == nullptr) {
        return ftkError::FTK_ERR_INIT;
    }
    record->setOptions(pixels, eventsSize, leftRawDataSize, rightRawDataSize, threeDFiducialsSize,
                       markersSize);
    return ftkError::FTK_OK;
}

FTK_API ftkError ftkDeleteFrame(ftkFrameQuery* frame) {
    if (frame == nullptr) {
        return ftkError::FTK_ERR_INV_PTR;
    }
    return FrameRecord::destroy(frame) ? ftkError::FTK_OK : ftkError::FTK_ERR_INIT;
}

FTK_API ftkError ftkGetLastFrame(ftkLibrary lib, uint64 sn, ftkFrameQuery* frame, uint32 timeoutMS) {
    const auto handle = Simulator::instance().find(lib);
    if (!handle) {
        return ftkError::FTK_ERR_INV_PTR;
    }
    if (frame == nullptr) {
        return handle->report(ftkError::FTK_ERR_INV_PTR, "ftkGetLastFrame needs a frame record");
    }
    FrameRecord* record = FrameRecord::find(frame);
    if (record == nullptr) {
        return handle->report(ftkError::FTK_ERR_INIT, "The frame record was not made by ftkCreateFrame");
    }
    Session* session = handle->session(sn);
    if (session == nullptr) {
        return handle->report(ftkError::FTK_ERR_INV_SN,
                              "No device with serial " + ErrorCodes::serialText(sn));
    }
    std::string message;
    const ftkError status = session->fetch(*record, timeoutMS, message);
    return handle->report(status, message);
}

} // extern "C"
