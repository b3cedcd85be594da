// The frame record functions of the C interface.

#include "simulator/src/FrameRecord.h"

#include <ftkInterface.h>

using Kestrion::Simulator::FrameRecord;

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

} // extern "C"
