#include "tests/atracsys/stream/SdkFaultShim.h"

#include <ftkInterface.h>

#include <new>

namespace Kestrion::TrackingStreamTest::SdkFaults {

namespace {

// Armed on the test thread, taken on the stream's control thread.
std::atomic<Fault> armed{Fault::None};

bool take(Fault fault) {
    Fault expected = fault;
    return armed.compare_exchange_strong(expected, Fault::None);
}

} // namespace

void arm(Fault fault) {
    armed = fault;
}

bool pending() {
    return armed.load() != Fault::None;
}

} // namespace Kestrion::TrackingStreamTest::SdkFaults

using Kestrion::TrackingStreamTest::SdkFaults::Fault;
using Kestrion::TrackingStreamTest::SdkFaults::take;

// The linker sends the stream's calls of these functions here (__wrap_) and names the simulated
// camera's own functions __real_.
extern "C" {

ftkLibrary __real_ftkInit();
ftkError __real_ftkClose(ftkLibrary* lib);
ftkFrameQuery* __real_ftkCreateFrame();
ftkError __real_ftkSetFrameOptions(bool pixels, uint32 eventsSize, uint32 leftRawDataSize,
                                   uint32 rightRawDataSize, uint32 threeDFiducialsSize, uint32 markersSize,
                                   ftkFrameQuery* frame);
ftkError __real_ftkGetLastFrame(ftkLibrary lib, uint64 sn, ftkFrameQuery* frame, uint32 timeoutMS);

ftkLibrary __wrap_ftkInit() {
    if (take(Fault::InitReturnsNull))
        return nullptr;
    if (take(Fault::InitThrows))
        throw std::bad_alloc();
    return __real_ftkInit();
}

ftkError __wrap_ftkClose(ftkLibrary* lib) {
    const ftkError result = __real_ftkClose(lib);
    return take(Fault::CloseFails) ? ftkError::FTK_ERR_INTERNAL : result;
}

ftkFrameQuery* __wrap_ftkCreateFrame() {
    return take(Fault::CreateFrameFails) ? nullptr : __real_ftkCreateFrame();
}

ftkError __wrap_ftkSetFrameOptions(bool pixels, uint32 eventsSize, uint32 leftRawDataSize,
                                   uint32 rightRawDataSize, uint32 threeDFiducialsSize, uint32 markersSize,
                                   ftkFrameQuery* frame) {
    if (take(Fault::FrameOptionsFail))
        return ftkError::FTK_ERR_INV_OPT_VAL;
    return __real_ftkSetFrameOptions(pixels, eventsSize, leftRawDataSize, rightRawDataSize,
                                     threeDFiducialsSize, markersSize, frame);
}

ftkError __wrap_ftkGetLastFrame(ftkLibrary lib, uint64 sn, ftkFrameQuery* frame, uint32 timeoutMS) {
    if (take(Fault::FetchThrows))
        throw std::bad_alloc();
    return __real_ftkGetLastFrame(lib, sn, frame, timeoutMS);
}

} // extern "C"
