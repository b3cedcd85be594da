// Control interface of the simulated camera library: scenes, the stepped clock, scripted faults,
// ground truth and leak counters. Tests, benchmarks and tools include it; the plugin never does.
// The functions are exported by the same library as the ftk* interface (libfusionTrack64.so).
//
// Scenes and faults are JSON; docs/simulator.md describes their format.

#ifndef FTK_SIMULATOR_H
#define FTK_SIMULATOR_H

#include <ftkInterface.h>

#include <cstddef>

/// Capacities of the ground-truth record (scenes are limited to them).
#define FTK_SIM_MAX_MARKERS 32
#define FTK_SIM_MAX_MARKER_FIDUCIALS 16
#define FTK_SIM_MAX_STRAYS 256

/// True state of one scene marker at a delivered frame.
struct ftkSimMarkerTruth {
    uint32 geometryId;
    uint32 fiducialsCount;  ///< True fiducials of the marker (entries of fiducialsMM).
    uint32 detectedMask;    ///< Bit i: fiducial i was detected by both cameras in that frame.
    float64 rotation[3][3]; ///< Marker frame -> camera frame, row-major.
    float64 translationMM[3];
    float64 fiducialsMM[FTK_SIM_MAX_MARKER_FIDUCIALS][3]; ///< True positions, camera frame.
};

/// True state of the scene at the last frame delivered on a handle for a device.
struct ftkSimFrameTruth {
    uint64 serial;
    uint64 frameCounter; ///< Also in the frame's image header (counter, low 32 bits).
    uint64 timestampUS;  ///< As in the frame's image header: the device's clock, µs since its start.
    float64 timeS;       ///< Device time of the frame: counter / rate.
    int64 exposureUS; ///< When the frame was exposed, on the host's system clock (µs since the epoch, UTC).
    int64 deliverableUS; ///< When it reached the host (exposure + delivery delay), on the same clock.
    uint32 markersCount;
    ftkSimMarkerTruth markers[FTK_SIM_MAX_MARKERS]; ///< In scene order, seen or not.
    uint32 straysCount;
    float64 straysMM[FTK_SIM_MAX_STRAYS][3];
};

extern "C" {

// --- Scenes -------------------------------------------------------------------------------------
// A scene replaces the devices for library handles opened afterwards; open handles keep theirs.
// On failure the current scene stays and ftkSimGetLastError tells why (file, place, problem).

FTK_API bool ftkSimLoadScene(const char* json);
FTK_API bool ftkSimLoadSceneFile(const char* path);
/// Replaces the devices with one that plays a recording (as FTK_SIMULATOR_REPLAY does): the
/// recorded markers, or with `matchMarkers` those found again in the recorded fiducials with the
/// geometries registered now. A recording that cannot be played fails with the file, the frame
/// and the problem in ftkSimGetLastError.
FTK_API bool ftkSimLoadReplay(const char* path, bool matchMarkers);
/// Back to the built-in default scene (one spryTrack 180, markers 1000 and 1001, three strays).
FTK_API bool ftkSimResetScene();
/// Copies the last control or scene error (empty when none) into buffer, truncated to size - 1
/// characters; returns the full length of the message.
FTK_API size_t ftkSimGetLastError(char* buffer, size_t size);

// --- Clock --------------------------------------------------------------------------------------

/// Stepped (true): every ftkGetLastFrame takes the next frame at once, deterministically.
/// Free running (false, the start): frames come at the model's rate on the system clock.
FTK_API void ftkSimSetSteppedClock(bool stepped);
FTK_API bool ftkSimSteppedClock();
/// Stepped clock: skips frames of a device (serial 0: every device of the scene) without
/// delivering them, to reach a later time at once. False for an unknown serial or when the
/// clock is free running.
FTK_API bool ftkSimStep(uint64 serial, uint64 frames);

// --- Faults -------------------------------------------------------------------------------------

/// Adds a fault (a JSON object as in a scene's "faults" list) to a device of the current scene.
FTK_API bool ftkSimInjectFault(uint64 serial, const char* faultJson);
/// Removes every fault of a device (a disconnection that already happened stays).
FTK_API bool ftkSimClearFaults(uint64 serial);
/// Number of ftkGetLastFrame calls on a device so far (fault triggers count them from 1).
FTK_API uint64 ftkSimFetchCount(uint64 serial);

// --- Ground truth -------------------------------------------------------------------------------

/// Truth of the last frame delivered through `lib` for device `serial`. FTK_ERR_INV_PTR for a bad
/// handle or record, FTK_ERR_INV_SN for an unknown serial, FTK_WAR_NO_FRAME before any frame.
FTK_API ftkError ftkSimGetFrameTruth(ftkLibrary lib, uint64 serial, ftkSimFrameTruth* truth);
/// When frame `frameCounter` of device `serial` was exposed, on the host's system clock (µs since
/// the epoch, UTC): what a capture time estimated from the frame's device timestamp should give.
/// False for an unknown serial, a replaying device (its frames were exposed when recorded) or no
/// output.
FTK_API bool ftkSimGetExposureTime(uint64 serial, uint64 frameCounter, int64* exposureUS);
/// The tool tip of a marker that moves by a "pivot" motion in the scene of device `serial`: the
/// tip in the marker's frame and the pivot point it rests on in the camera's frame (mm). False
/// for an unknown serial, a marker not in the scene or one that does not pivot.
FTK_API bool ftkSimGetPivotTruth(uint64 serial, uint32 geometryId, float64 tipInMarkerMM[3],
                                 float64 pivotPointMM[3]);

// --- Leak counters ------------------------------------------------------------------------------

/// Library handles opened by ftkInit and not closed.
FTK_API size_t ftkSimLiveLibraries();
/// Frame records made by ftkCreateFrame and not deleted.
FTK_API size_t ftkSimLiveFrames();

} // extern "C"

#endif // FTK_SIMULATOR_H
