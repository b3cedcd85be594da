// C interface of the optical tracking camera library: library handles, device enumeration,
// device options, marker geometries and frame acquisition.
//
// The plugin includes this file as <ftkInterface.h>. The build decides whose header answers that
// include: this one (the simulated camera in simulator/src) or the vendor's. Names, numeric
// values, field order and packing below therefore match the vendor's SDK 4.x exactly.
//
// Status convention: a negative ftkError is a warning, 0 success, a positive value an error.
// Positions are in millimetres, right-handed, origin at the optical centre of the left camera.

#ifndef FTK_INTERFACE_H
#define FTK_INTERFACE_H

#include <cstddef>
#include <cstdint>

#if defined(__GNUC__)
#define FTK_API __attribute__((visibility("default")))
#else
#define FTK_API
#endif

// --- Fixed-width types --------------------------------------------------------------------------

typedef std::uint8_t uint8;
typedef std::uint16_t uint16;
typedef std::uint32_t uint32;
typedef std::uint64_t uint64;
typedef std::int8_t int8;
typedef std::int16_t int16;
typedef std::int32_t int32;
typedef std::int64_t int64;
typedef float float32;
typedef double float64;
typedef uint8 bool8;
typedef float floatXX;

// --- Constants ----------------------------------------------------------------------------------

/// Largest number of fiducials of one marker geometry.
#define FTK_MAX_FIDUCIALS 6
/// "No such index" in correspondence and index fields.
#define INVALID_ID 0xFFFFFFFFu
/// Capacity of the data array of an ftkBuffer.
#define BUFFER_MAX_SIZE 10240

// --- Enumerations -------------------------------------------------------------------------------

/// Result of every library call.
enum class ftkError : int32 {
    // Warnings.
    FTK_WAR_OPT_GLOBAL_ONLY = -103,
    FTK_WAR_OPT_NO_OP = -102,
    FTK_WAR_OPT_VAL_RANGE = -101,
    FTK_WAR_CALIB_AUTHENTICATION = -30,
    FTK_WAR_USB_TOO_SLOW = -22,
    FTK_WAR_NOT_EXISTING = -21,
    FTK_WAR_ALREADY_PRESENT = -20,
    FTK_WAR_REJECTED_PIC = -18,
    FTK_WAR_SHOCK_DETECTED = -17,
    FTK_WAR_SN_ABSENT = -16,
    FTK_WAR_TEMP_HIGH = -15,
    FTK_WAR_TEMP_LOW = -14,
    FTK_WAR_TEMP_INVALID = -13,
    FTK_WAR_FILE_NOT_FOUND = -12,
    FTK_WAR_GEOM_ID = -11,
    FTK_WAR_FRAME = -10,
    FTK_WAR_NOT_SUPPORTED = -2,
    FTK_WAR_NO_FRAME = -1,
    // Success.
    FTK_OK = 0,
    // Errors.
    FTK_ERR_INV_PTR = 1,
    FTK_ERR_INV_SN = 2,
    FTK_ERR_INV_INDEX = 3,
    FTK_ERR_INTERNAL = 4,
    FTK_ERR_WRITE = 5,
    FTK_ERR_READ = 6,
    FTK_ERR_IMG_DEC = 7,
    FTK_ERR_IMG_FMT = 8,
    FTK_ERR_VERSION = 9,
    FTK_ERR_INIT = 10,
    FTK_ERR_IM_TOO_SMALL = 11,
    FTK_ERR_INV_INI_FILE = 12,
    FTK_ERR_SEG_OVERFLOW = 13,
    FTK_ERR_IMPAIRING_CALIB = 14,
    FTK_ERR_GEOM_PTS = 20,
    FTK_ERR_GEOM_REGISTERED = 21,
    FTK_ERR_SYNC = 30,
    FTK_ERR_COMP_ALGO = 40,
    FTK_ERR_DISCONNECTION = 50,
    FTK_ERR_INV_OPT = 100,
    FTK_ERR_INV_OPT_ACC = 101,
    FTK_ERR_INV_OPT_VAL = 102,
    FTK_ERR_INV_OPT_PAR = 103,
};

/// Camera model reported by the enumeration.
enum class ftkDeviceType : int8 {
    DEV_SIMULATOR = 0,
    DEV_INFINITRACK = 1,
    DEV_FUSIONTRACK_500 = 2,
    DEV_FUSIONTRACK_250 = 3,
    DEV_SPRYTRACK_180 = 4,
    DEV_SPRYTRACK_300 = 5,
    DEV_UNKNOWN_DEVICE = 127,
};

/// Value type of an option. There is deliberately no value 2.
enum class ftkOptionType : uint8 {
    FTK_INT32 = 0,
    FTK_FLOAT32 = 1,
    FTK_DATA = 3,
};

/// Which value of an option a getter returns.
enum class ftkOptionGetter : uint8 {
    FTK_MIN_VAL = 0,
    FTK_MAX_VAL = 1,
    FTK_DEF_VAL = 2,
    FTK_VALUE = 3,
};

/// Part of the system an option belongs to.
enum class ftkComponent : uint8 {
    FTK_DEVICE = 0,
    FTK_DETECTOR = 1,
    FTK_MATCH2D3D = 2,
    FTK_DEVICE_DETECTOR = 3,
    FTK_DEVICE_MATCH2D3D = 4,
    FTK_DEVICE_WIRELESS = 5,
    FTK_DEVICE_DEVICE = 6,
    FTK_LIBRARY = 100,
};

/// State of one container of a frame after a fetch.
enum class ftkQueryStatus : int8 {
    QS_WAR_SKIPPED = -1,
    QS_OK = 0,
    QS_ERR_OVERFLOW = 1,
    QS_ERR_INVALID_RESERVED_SIZE = 2,
    QS_REPROCESS = 10,
};

/// Layout of image pixels.
enum class ftkPixelFormat : uint8 {
    GRAY8 = 0,
    GRAY8_VIS = 3,
    GRAY16 = 4,
    GRAY16_VIS = 5,
};

// --- Records (packed to one byte) ---------------------------------------------------------------

#pragma pack(push, 1)

/// Access bits of an option.
struct ftkOptionStatus {
    uint32 read : 1;
    uint32 write : 1;
    uint32 accessProtected : 1;
    uint32 accessPrivate : 1;
    uint32 globalOption : 1;
    uint32 reserved : 27;
};

/// Description of one option, handed to the option enumeration callback.
struct ftkOptionsInfo {
    uint32 id;
    ftkComponent component;
    ftkOptionStatus status;
    ftkOptionType type;
    const char* name;
    const char* description;
    const char* unit;
};

/// Value of a data option.
struct ftkBuffer {
    union {
        char data[BUFFER_MAX_SIZE];
        uint8 uData[BUFFER_MAX_SIZE];
        int8 sData[BUFFER_MAX_SIZE];
    };
    uint32 size;
};

/// A point in millimetres.
struct ftk3DPoint {
    floatXX x;
    floatXX y;
    floatXX z;
};

/// A marker geometry: fiducial positions in the marker's own frame.
struct ftkGeometry {
    uint32 geometryId;
    uint32 version : 8;
    uint32 pointsCount : 24;
    ftk3DPoint positions[FTK_MAX_FIDUCIALS];
};

/// Condition bits of a detection, fiducial or marker.
struct ftkStatus {
    uint32 RightEdge : 1;
    uint32 BottomEdge : 1;
    uint32 LeftEdge : 1;
    uint32 TopEdge : 1;
    uint32 SensorCrop : 1;
    uint32 WorkingVolume : 1;
    uint32 ThreeDcrop : 1;
    uint32 Reserved : 25;

    ftkStatus() = default;
    ftkStatus(uint32 bits) { *this = bits; }
    ftkStatus& operator=(uint32 bits) {
        RightEdge = bits & 1u;
        BottomEdge = (bits >> 1) & 1u;
        LeftEdge = (bits >> 2) & 1u;
        TopEdge = (bits >> 3) & 1u;
        SensorCrop = (bits >> 4) & 1u;
        WorkingVolume = (bits >> 5) & 1u;
        ThreeDcrop = (bits >> 6) & 1u;
        Reserved = bits >> 7;
        return *this;
    }
    operator uint32() const {
        return uint32(RightEdge) | uint32(BottomEdge) << 1 | uint32(LeftEdge) << 2 | uint32(TopEdge) << 3 |
               uint32(SensorCrop) << 4 | uint32(WorkingVolume) << 5 | uint32(ThreeDcrop) << 6 |
               uint32(Reserved) << 7;
    }
};

/// Version and byte size of a frame container.
struct ftkVersionSize {
    uint32 Version;
    uint32 ReservedSize;
};

/// Header of the two camera images of a frame.
struct ftkImageHeader {
    uint64 timestampUS;
    uint64 desynchroUS;
    uint32 counter;
    ftkPixelFormat format;
    uint16 width;
    uint16 height;
    int32 imageStrideInBytes;
};

/// One blob detected in one camera image.
struct ftkRawData {
    floatXX centerXPixels;
    floatXX centerYPixels;
    ftkStatus status;
    uint32 pixelsCount;
    uint16 width;
    uint16 height;
};

/// A fiducial triangulated from one left and one right detection.
struct ftk3DFiducial {
    ftkStatus status;
    uint32 leftIndex;
    uint32 rightIndex;
    ftk3DPoint positionMM;
    floatXX epipolarErrorPixels;
    floatXX triangulationErrorMM;
    floatXX probability;
};

/// A registered geometry found in a frame and its pose in camera coordinates.
struct ftkMarker {
    ftkStatus status;
    uint32 id;
    uint32 geometryId;
    uint32 geometryPresenceMask;
    uint32 fiducialCorresp[FTK_MAX_FIDUCIALS];
    floatXX rotation[3][3];
    floatXX translationMM[3];
    floatXX registrationErrorMM;
};

/// A device event carried by a frame.
struct ftkEvent {
    uint32 Type;
    uint64 Timestamp;
    uint64 SerialNumber;
    uint32 Payload;
    uint8* Data;
};

/// The frame record: containers sized by ftkSetFrameOptions, filled by ftkGetLastFrame.
struct ftkFrameQuery {
    ftkImageHeader* imageHeader;
    ftkVersionSize imageHeaderVersionSize;
    ftkQueryStatus imageHeaderStat;

    void* internalData;

    ftkEvent** events;
    ftkVersionSize eventsVersionSize;
    uint32 eventsCount;
    ftkQueryStatus eventsStat;

    uint8* imageLeftPixels;
    ftkVersionSize imageLeftVersionSize;
    ftkQueryStatus imageLeftStat;

    uint8* imageRightPixels;
    ftkVersionSize imageRightVersionSize;
    ftkQueryStatus imageRightStat;

    ftkRawData* rawDataLeft;
    ftkVersionSize rawDataLeftVersionSize;
    uint32 rawDataLeftCount;
    ftkQueryStatus rawDataLeftStat;

    ftkRawData* rawDataRight;
    ftkVersionSize rawDataRightVersionSize;
    uint32 rawDataRightCount;
    ftkQueryStatus rawDataRightStat;

    ftk3DFiducial* threeDFiducials;
    ftkVersionSize threeDFiducialsVersionSize;
    uint32 threeDFiducialsCount;
    ftkQueryStatus threeDFiducialsStat;

    ftkMarker* markers;
    ftkVersionSize markersVersionSize;
    uint32 markersCount;
    ftkQueryStatus markersStat;
};

#pragma pack(pop)

// --- Handle and callbacks -----------------------------------------------------------------------

struct ftkLibraryImp;
typedef ftkLibraryImp* ftkLibrary;

/// Called once per connected device by ftkEnumerateDevices.
typedef void (*ftkDeviceEnumCallback)(uint64 sn, void* user, ftkDeviceType type);
/// Called once per option by ftkEnumerateOptions.
typedef void (*ftkOptionsEnumCallback)(uint64 sn, void* user, ftkOptionsInfo* info);

// --- Functions ----------------------------------------------------------------------------------

extern "C" {

/// Opens a library handle; null on failure.
FTK_API ftkLibrary ftkInit();
/// Closes the handle and nulls it; FTK_ERR_INV_PTR when it is null or already closed.
FTK_API ftkError ftkClose(ftkLibrary* lib);
/// Writes the XML description (<ftkError> with <errors>, <warnings>, <messages>) of the last
/// failure on the handle into str, at most strSize bytes including the terminating zero.
FTK_API ftkError ftkGetLastErrorString(ftkLibrary lib, size_t strSize, char str[]);

/// Calls cb once per connected device.
FTK_API ftkError ftkEnumerateDevices(ftkLibrary lib, ftkDeviceEnumCallback cb, void* user);
/// Calls cb once per option of device sn (sn 0: the global options).
FTK_API ftkError ftkEnumerateOptions(ftkLibrary lib, uint64 sn, ftkOptionsEnumCallback cb, void* user);

FTK_API ftkError ftkGetInt32(ftkLibrary lib, uint64 sn, uint32 optID, int32* out, ftkOptionGetter what);
FTK_API ftkError ftkSetInt32(ftkLibrary lib, uint64 sn, uint32 optID, int32 val);
FTK_API ftkError ftkGetFloat32(ftkLibrary lib, uint64 sn, uint32 optID, float32* out, ftkOptionGetter what);
FTK_API ftkError ftkSetFloat32(ftkLibrary lib, uint64 sn, uint32 optID, float32 val);
/// Data options have only a current value.
FTK_API ftkError ftkGetData(ftkLibrary lib, uint64 sn, uint32 optID, ftkBuffer* buffer);
FTK_API ftkError ftkSetData(ftkLibrary lib, uint64 sn, uint32 optID, ftkBuffer* buffer);

/// Registers a marker geometry on device sn (3 to FTK_MAX_FIDUCIALS points).
FTK_API ftkError ftkSetGeometry(ftkLibrary lib, uint64 sn, ftkGeometry* geometryIn);
/// Removes a registered geometry; FTK_WAR_GEOM_ID when that id is not registered.
FTK_API ftkError ftkClearGeometry(ftkLibrary lib, uint64 sn, uint32 geometryId);

/// Allocates an empty frame record; release it with ftkDeleteFrame.
FTK_API ftkFrameQuery* ftkCreateFrame();
/// Allocates the frame's containers with the given capacities (entries, not bytes).
FTK_API ftkError ftkSetFrameOptions(bool pixels, uint32 eventsSize, uint32 leftRawDataSize,
                                    uint32 rightRawDataSize, uint32 threeDFiducialsSize, uint32 markersSize,
                                    ftkFrameQuery* frame);
/// Fills frame with the newest frame of device sn, waiting up to timeoutMS for one newer than the
/// last one fetched into this record; FTK_WAR_NO_FRAME when none came.
FTK_API ftkError ftkGetLastFrame(ftkLibrary lib, uint64 sn, ftkFrameQuery* frame, uint32 timeoutMS);
/// Releases a frame record made by ftkCreateFrame and its containers.
FTK_API ftkError ftkDeleteFrame(ftkFrameQuery* frame);

} // extern "C"

#endif // FTK_INTERFACE_H
