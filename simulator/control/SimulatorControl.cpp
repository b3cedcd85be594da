// The control interface (ftkSimulator.h).

#include "simulator/control/ftkSimulator.h"

#include "simulator/src/Device.h"
#include "simulator/src/FrameRecord.h"
#include "simulator/src/LibraryHandle.h"
#include "simulator/src/SceneParser.h"
#include "simulator/src/Simulator.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <string>

using namespace Kestrion::Simulator;

namespace {

// The last control error. Guarded: control functions may be called from any thread.
std::mutex& errorMutex() {
    static std::mutex mutex;
    return mutex;
}

std::string& lastError() {
    static std::string text;
    return text;
}

bool fail(const std::string& message) {
    std::lock_guard<std::mutex> lock(errorMutex());
    lastError() = message;
    return false;
}

bool succeed() {
    std::lock_guard<std::mutex> lock(errorMutex());
    lastError().clear();
    return true;
}

bool sceneResult(bool ok, const std::string& error) {
    return ok ? succeed() : fail(error);
}

} // namespace

extern "C" {

FTK_API bool ftkSimLoadScene(const char* json) {
    if (json == nullptr) {
        return fail("ftkSimLoadScene: no scene text");
    }
    std::string error;
    return sceneResult(Simulator::instance().loadSceneText(json, error), error);
}

FTK_API bool ftkSimLoadSceneFile(const char* path) {
    if (path == nullptr) {
        return fail("ftkSimLoadSceneFile: no file name");
    }
    std::string error;
    return sceneResult(Simulator::instance().loadSceneFile(path, error), error);
}

FTK_API bool ftkSimLoadReplay(const char* path, bool matchMarkers) {
    if (path == nullptr) {
        return fail("ftkSimLoadReplay: no file name");
    }
    std::string error;
    return sceneResult(Simulator::instance().loadReplay(path, matchMarkers, error), error);
}

FTK_API bool ftkSimResetScene() {
    std::string error;
    return sceneResult(Simulator::instance().loadDefaultScene(error), error);
}

FTK_API size_t ftkSimGetLastError(char* buffer, size_t size) {
    std::string text;
    {
        std::lock_guard<std::mutex> lock(errorMutex());
        text = lastError();
    }
    if (text.empty()) {
        // A scene that failed to load at ftkInit (FTK_SIMULATOR_SCENE) is reported here too.
        text = Simulator::instance().lastSceneError();
    }
    if (buffer != nullptr && size > 0) {
        const std::size_t n = std::min(text.size(), size - 1);
        std::memcpy(buffer, text.data(), n);
        buffer[n] = '\0';
    }
    return text.size();
}

FTK_API void ftkSimSetSteppedClock(bool stepped) {
    Simulator::instance().setSteppedClock(stepped);
}

FTK_API bool ftkSimSteppedClock() {
    return Simulator::instance().steppedClock();
}

FTK_API bool ftkSimStep(uint64 serial, uint64 frames) {
    if (!Simulator::instance().steppedClock()) {
        return fail("ftkSimStep: the clock is free running");
    }
    if (serial == 0) {
        for (const auto& device : Simulator::instance().devices()) {
            device->skipFrames(frames);
        }
        return succeed();
    }
    const auto device = Simulator::instance().device(serial);
    if (!device) {
        return fail("ftkSimStep: no device with serial " + std::to_string(serial));
    }
    device->skipFrames(frames);
    return succeed();
}

FTK_API bool ftkSimInjectFault(uint64 serial, const char* faultJson) {
    const auto device = Simulator::instance().device(serial);
    if (!device) {
        return fail("ftkSimInjectFault: no device with serial " + std::to_string(serial) +
                    " in the current scene");
    }
    if (faultJson == nullptr) {
        return fail("ftkSimInjectFault: no fault text");
    }
    FaultRule fault;
    std::string error;
    if (!SceneParser::parseFault(faultJson, fault, error)) {
        return fail("ftkSimInjectFault: " + error);
    }
    device->addFault(fault);
    return succeed();
}

FTK_API bool ftkSimClearFaults(uint64 serial) {
    const auto device = Simulator::instance().device(serial);
    if (!device) {
        return fail("ftkSimClearFaults: no device with serial " + std::to_string(serial) +
                    " in the current scene");
    }
    device->clearFaults();
    return succeed();
}

FTK_API uint64 ftkSimFetchCount(uint64 serial) {
    const auto device = Simulator::instance().device(serial);
    return device ? device->fetchCount() : 0;
}

FTK_API ftkError ftkSimGetFrameTruth(ftkLibrary lib, uint64 serial, ftkSimFrameTruth* out) {
    const auto handle = Simulator::instance().find(lib);
    if (!handle || out == nullptr) {
        return ftkError::FTK_ERR_INV_PTR;
    }
    Session* session = nullptr;
    for (const auto& s : handle->sessions()) {
        if (s->device().serial() == serial) {
            session = s.get();
        }
    }
    if (session == nullptr) {
        return ftkError::FTK_ERR_INV_SN;
    }
    FrameTruth truth;
    if (!session->truth(truth)) {
        return ftkError::FTK_WAR_NO_FRAME;
    }
    std::memset(out, 0, sizeof(*out));
    out->serial = serial;
    out->frameCounter = truth.index;
    out->timestampUS = truth.timestampUS;
    out->timeS = truth.timeS;
    out->exposureUS = truth.exposureUS;
    out->deliverableUS = truth.deliverableUS;
    out->markersCount = static_cast<uint32>(std::min<std::size_t>(truth.markers.size(), FTK_SIM_MAX_MARKERS));
    for (uint32 m = 0; m < out->markersCount; ++m) {
        const MarkerTruth& t = truth.markers[m];
        ftkSimMarkerTruth& o = out->markers[m];
        o.geometryId = t.geometryId;
        o.detectedMask = t.detectedMask;
        o.fiducialsCount =
            static_cast<uint32>(std::min<std::size_t>(t.fiducialsMM.size(), FTK_SIM_MAX_MARKER_FIDUCIALS));
        for (int r = 0; r < 3; ++r) {
            for (int c = 0; c < 3; ++c) {
                o.rotation[r][c] = t.rotation(r, c);
            }
            o.translationMM[r] = t.translationMM(r);
        }
        for (uint32 i = 0; i < o.fiducialsCount; ++i) {
            for (int k = 0; k < 3; ++k) {
                o.fiducialsMM[i][k] = t.fiducialsMM[i](k);
            }
        }
    }
    out->straysCount = static_cast<uint32>(std::min<std::size_t>(truth.straysMM.size(), FTK_SIM_MAX_STRAYS));
    for (uint32 i = 0; i < out->straysCount; ++i) {
        for (int k = 0; k < 3; ++k) {
            out->straysMM[i][k] = truth.straysMM[i](k);
        }
    }
    return ftkError::FTK_OK;
}

FTK_API size_t ftkSimLiveLibraries() {
    return Simulator::instance().liveHandles();
}

FTK_API size_t ftkSimLiveFrames() {
    return FrameRecord::liveCount();
}

FTK_API bool ftkSimGetExposureTime(uint64 serial, uint64 frameCounter, int64* exposureUS) {
    const auto device = Simulator::instance().device(serial);
    if (!device || exposureUS == nullptr) {
        return fail("ftkSimGetExposureTime: unknown device or no output");
    }
    std::int64_t at = 0;
    if (!device->exposureTime(frameCounter, at)) {
        return fail("ftkSimGetExposureTime: device " + std::to_string(serial) +
                    " replays a recording; its exposure times are not known");
    }
    *exposureUS = at;
    return true;
}

FTK_API bool ftkSimGetPivotTruth(uint64 serial, uint32 geometryId, float64 tipInMarkerMM[3],
                                 float64 pivotPointMM[3]) {
    const auto device = Simulator::instance().device(serial);
    if (!device || tipInMarkerMM == nullptr || pivotPointMM == nullptr) {
        return fail("ftkSimGetPivotTruth: unknown device or no output");
    }
    for (const MarkerDescription& marker : device->scene().markers) {
        if (marker.geometryId == geometryId && marker.motion.kind == Motion::Kind::Pivot) {
            for (int k = 0; k < 3; ++k) {
                tipInMarkerMM[k] = marker.motion.tip(k);
                pivotPointMM[k] = marker.motion.pivotPoint(k);
            }
            return succeed();
        }
    }
    return fail("ftkSimGetPivotTruth: no pivoting marker " + std::to_string(geometryId));
}

} // extern "C"
