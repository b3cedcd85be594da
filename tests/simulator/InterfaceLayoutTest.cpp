// Pins the binary layout of the camera interface: enumeration values, constants, record sizes and
// field offsets. The plugin must build unchanged against the vendor's library, so any drift here
// is a fault even when everything still compiles.

#include <ftkInterface.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

namespace {

template <typename E>
constexpr auto value(E e) {
    return static_cast<std::underlying_type_t<E>>(e);
}

// Underlying types.
static_assert(std::is_same_v<std::underlying_type_t<ftkError>, int32>);
static_assert(std::is_same_v<std::underlying_type_t<ftkDeviceType>, int8>);
static_assert(std::is_same_v<std::underlying_type_t<ftkOptionType>, uint8>);
static_assert(std::is_same_v<std::underlying_type_t<ftkOptionGetter>, uint8>);
static_assert(std::is_same_v<std::underlying_type_t<ftkComponent>, uint8>);
static_assert(std::is_same_v<std::underlying_type_t<ftkQueryStatus>, int8>);
static_assert(std::is_same_v<std::underlying_type_t<ftkPixelFormat>, uint8>);

// Fixed-width types.
static_assert(sizeof(uint8) == 1 && sizeof(uint16) == 2 && sizeof(uint32) == 4 && sizeof(uint64) == 8);
static_assert(sizeof(int8) == 1 && sizeof(int16) == 2 && sizeof(int32) == 4 && sizeof(int64) == 8);
static_assert(std::is_same_v<float32, float> && std::is_same_v<float64, double>);
static_assert(std::is_same_v<floatXX, float> && std::is_same_v<bool8, uint8>);
static_assert(std::is_signed_v<int8> && std::is_unsigned_v<uint64>);

// Constants.
static_assert(FTK_MAX_FIDUCIALS == 6);
static_assert(INVALID_ID == 0xFFFFFFFFu);
static_assert(BUFFER_MAX_SIZE == 10240);

// ftkError: warnings negative, success 0, errors positive.
static_assert(value(ftkError::FTK_WAR_NO_FRAME) == -1);
static_assert(value(ftkError::FTK_WAR_NOT_SUPPORTED) == -2);
static_assert(value(ftkError::FTK_WAR_FRAME) == -10);
static_assert(value(ftkError::FTK_WAR_GEOM_ID) == -11);
static_assert(value(ftkError::FTK_WAR_FILE_NOT_FOUND) == -12);
static_assert(value(ftkError::FTK_WAR_TEMP_INVALID) == -13);
static_assert(value(ftkError::FTK_WAR_TEMP_LOW) == -14);
static_assert(value(ftkError::FTK_WAR_TEMP_HIGH) == -15);
static_assert(value(ftkError::FTK_WAR_SN_ABSENT) == -16);
static_assert(value(ftkError::FTK_WAR_SHOCK_DETECTED) == -17);
static_assert(value(ftkError::FTK_WAR_REJECTED_PIC) == -18);
static_assert(value(ftkError::FTK_WAR_ALREADY_PRESENT) == -20);
static_assert(value(ftkError::FTK_WAR_NOT_EXISTING) == -21);
static_assert(value(ftkError::FTK_WAR_USB_TOO_SLOW) == -22);
static_assert(value(ftkError::FTK_WAR_CALIB_AUTHENTICATION) == -30);
static_assert(value(ftkError::FTK_WAR_OPT_VAL_RANGE) == -101);
static_assert(value(ftkError::FTK_WAR_OPT_NO_OP) == -102);
static_assert(value(ftkError::FTK_WAR_OPT_GLOBAL_ONLY) == -103);
static_assert(value(ftkError::FTK_OK) == 0);
static_assert(value(ftkError::FTK_ERR_INV_PTR) == 1);
static_assert(value(ftkError::FTK_ERR_INV_SN) == 2);
static_assert(value(ftkError::FTK_ERR_INV_INDEX) == 3);
static_assert(value(ftkError::FTK_ERR_INTERNAL) == 4);
static_assert(value(ftkError::FTK_ERR_WRITE) == 5);
static_assert(value(ftkError::FTK_ERR_READ) == 6);
static_assert(value(ftkError::FTK_ERR_IMG_DEC) == 7);
static_assert(value(ftkError::FTK_ERR_IMG_FMT) == 8);
static_assert(value(ftkError::FTK_ERR_VERSION) == 9);
static_assert(value(ftkError::FTK_ERR_INIT) == 10);
static_assert(value(ftkError::FTK_ERR_IM_TOO_SMALL) == 11);
static_assert(value(ftkError::FTK_ERR_INV_INI_FILE) == 12);
static_assert(value(ftkError::FTK_ERR_SEG_OVERFLOW) == 13);
static_assert(value(ftkError::FTK_ERR_IMPAIRING_CALIB) == 14);
static_assert(value(ftkError::FTK_ERR_GEOM_PTS) == 20);
static_assert(value(ftkError::FTK_ERR_GEOM_REGISTERED) == 21);
static_assert(value(ftkError::FTK_ERR_SYNC) == 30);
static_assert(value(ftkError::FTK_ERR_COMP_ALGO) == 40);
static_assert(value(ftkError::FTK_ERR_DISCONNECTION) == 50);
static_assert(value(ftkError::FTK_ERR_INV_OPT) == 100);
static_assert(value(ftkError::FTK_ERR_INV_OPT_ACC) == 101);
static_assert(value(ftkError::FTK_ERR_INV_OPT_VAL) == 102);
static_assert(value(ftkError::FTK_ERR_INV_OPT_PAR) == 103);

static_assert(value(ftkDeviceType::DEV_SIMULATOR) == 0);
static_assert(value(ftkDeviceType::DEV_INFINITRACK) == 1);
static_assert(value(ftkDeviceType::DEV_FUSIONTRACK_500) == 2);
static_assert(value(ftkDeviceType::DEV_FUSIONTRACK_250) == 3);
static_assert(value(ftkDeviceType::DEV_SPRYTRACK_180) == 4);
static_assert(value(ftkDeviceType::DEV_SPRYTRACK_300) == 5);
static_assert(value(ftkDeviceType::DEV_UNKNOWN_DEVICE) == 127);

static_assert(value(ftkOptionType::FTK_INT32) == 0);
static_assert(value(ftkOptionType::FTK_FLOAT32) == 1);
static_assert(value(ftkOptionType::FTK_DATA) == 3);

static_assert(value(ftkOptionGetter::FTK_MIN_VAL) == 0);
static_assert(value(ftkOptionGetter::FTK_MAX_VAL) == 1);
static_assert(value(ftkOptionGetter::FTK_DEF_VAL) == 2);
static_assert(value(ftkOptionGetter::FTK_VALUE) == 3);

static_assert(value(ftkComponent::FTK_DEVICE) == 0);
static_assert(value(ftkComponent::FTK_DETECTOR) == 1);
static_assert(value(ftkComponent::FTK_MATCH2D3D) == 2);
static_assert(value(ftkComponent::FTK_DEVICE_DETECTOR) == 3);
static_assert(value(ftkComponent::FTK_DEVICE_MATCH2D3D) == 4);
static_assert(value(ftkComponent::FTK_DEVICE_WIRELESS) == 5);
static_assert(value(ftkComponent::FTK_DEVICE_DEVICE) == 6);
static_assert(value(ftkComponent::FTK_LIBRARY) == 100);

static_assert(value(ftkQueryStatus::QS_WAR_SKIPPED) == -1);
static_assert(value(ftkQueryStatus::QS_OK) == 0);
static_assert(value(ftkQueryStatus::QS_ERR_OVERFLOW) == 1);
static_assert(value(ftkQueryStatus::QS_ERR_INVALID_RESERVED_SIZE) == 2);
static_assert(value(ftkQueryStatus::QS_REPROCESS) == 10);

static_assert(value(ftkPixelFormat::GRAY8) == 0);
static_assert(value(ftkPixelFormat::GRAY8_VIS) == 3);
static_assert(value(ftkPixelFormat::GRAY16) == 4);
static_assert(value(ftkPixelFormat::GRAY16_VIS) == 5);

// Records: packed to one byte, fields in the interface's order.
static_assert(sizeof(ftkOptionStatus) == 4);
static_assert(sizeof(ftkStatus) == 4);
static_assert(std::is_trivially_copyable_v<ftkStatus>);

static_assert(offsetof(ftkOptionsInfo, id) == 0);
static_assert(offsetof(ftkOptionsInfo, component) == 4);
static_assert(offsetof(ftkOptionsInfo, status) == 5);
static_assert(offsetof(ftkOptionsInfo, type) == 9);
static_assert(offsetof(ftkOptionsInfo, name) == 10);
static_assert(offsetof(ftkOptionsInfo, description) == 18);
static_assert(offsetof(ftkOptionsInfo, unit) == 26);
static_assert(sizeof(ftkOptionsInfo) == 34);

static_assert(offsetof(ftkBuffer, data) == 0);
static_assert(offsetof(ftkBuffer, uData) == 0);
static_assert(offsetof(ftkBuffer, sData) == 0);
static_assert(offsetof(ftkBuffer, size) == BUFFER_MAX_SIZE);
static_assert(sizeof(ftkBuffer) == BUFFER_MAX_SIZE + 4);

static_assert(sizeof(ftk3DPoint) == 12);
static_assert(offsetof(ftk3DPoint, z) == 8);

static_assert(offsetof(ftkGeometry, positions) == 8);
static_assert(sizeof(ftkGeometry) == 8 + 6 * 12);

static_assert(sizeof(ftkVersionSize) == 8);
static_assert(offsetof(ftkVersionSize, ReservedSize) == 4);

static_assert(offsetof(ftkImageHeader, desynchroUS) == 8);
static_assert(offsetof(ftkImageHeader, counter) == 16);
static_assert(offsetof(ftkImageHeader, format) == 20);
static_assert(offsetof(ftkImageHeader, width) == 21);
static_assert(offsetof(ftkImageHeader, height) == 23);
static_assert(offsetof(ftkImageHeader, imageStrideInBytes) == 25);
static_assert(sizeof(ftkImageHeader) == 29);

static_assert(offsetof(ftkRawData, centerYPixels) == 4);
static_assert(offsetof(ftkRawData, status) == 8);
static_assert(offsetof(ftkRawData, pixelsCount) == 12);
static_assert(offsetof(ftkRawData, width) == 16);
static_assert(offsetof(ftkRawData, height) == 18);
static_assert(sizeof(ftkRawData) == 20);

static_assert(offsetof(ftk3DFiducial, leftIndex) == 4);
static_assert(offsetof(ftk3DFiducial, rightIndex) == 8);
static_assert(offsetof(ftk3DFiducial, positionMM) == 12);
static_assert(offsetof(ftk3DFiducial, epipolarErrorPixels) == 24);
static_assert(offsetof(ftk3DFiducial, triangulationErrorMM) == 28);
static_assert(offsetof(ftk3DFiducial, probability) == 32);
static_assert(sizeof(ftk3DFiducial) == 36);

static_assert(offsetof(ftkMarker, id) == 4);
static_assert(offsetof(ftkMarker, geometryId) == 8);
static_assert(offsetof(ftkMarker, geometryPresenceMask) == 12);
static_assert(offsetof(ftkMarker, fiducialCorresp) == 16);
static_assert(offsetof(ftkMarker, rotation) == 40);
static_assert(offsetof(ftkMarker, translationMM) == 76);
static_assert(offsetof(ftkMarker, registrationErrorMM) == 88);
static_assert(sizeof(ftkMarker) == 92);

static_assert(offsetof(ftkEvent, Timestamp) == 4);
static_assert(offsetof(ftkEvent, SerialNumber) == 12);
static_assert(offsetof(ftkEvent, Payload) == 20);
static_assert(offsetof(ftkEvent, Data) == 24);
static_assert(sizeof(ftkEvent) == 32);

// Frame record: pointer (8), version/size (8), status (1) per image container; containers with
// a count add 4 bytes before their status.
static_assert(offsetof(ftkFrameQuery, imageHeader) == 0);
static_assert(offsetof(ftkFrameQuery, imageHeaderVersionSize) == 8);
static_assert(offsetof(ftkFrameQuery, imageHeaderStat) == 16);
static_assert(offsetof(ftkFrameQuery, internalData) == 17);
static_assert(offsetof(ftkFrameQuery, events) == 25);
static_assert(offsetof(ftkFrameQuery, eventsVersionSize) == 33);
static_assert(offsetof(ftkFrameQuery, eventsCount) == 41);
static_assert(offsetof(ftkFrameQuery, eventsStat) == 45);
static_assert(offsetof(ftkFrameQuery, imageLeftPixels) == 46);
static_assert(offsetof(ftkFrameQuery, imageLeftStat) == 62);
static_assert(offsetof(ftkFrameQuery, imageRightPixels) == 63);
static_assert(offsetof(ftkFrameQuery, imageRightStat) == 79);
static_assert(offsetof(ftkFrameQuery, rawDataLeft) == 80);
static_assert(offsetof(ftkFrameQuery, rawDataLeftCount) == 96);
static_assert(offsetof(ftkFrameQuery, rawDataLeftStat) == 100);
static_assert(offsetof(ftkFrameQuery, rawDataRight) == 101);
static_assert(offsetof(ftkFrameQuery, rawDataRightStat) == 121);
static_assert(offsetof(ftkFrameQuery, threeDFiducials) == 122);
static_assert(offsetof(ftkFrameQuery, threeDFiducialsCount) == 138);
static_assert(offsetof(ftkFrameQuery, threeDFiducialsStat) == 142);
static_assert(offsetof(ftkFrameQuery, markers) == 143);
static_assert(offsetof(ftkFrameQuery, markersCount) == 159);
static_assert(offsetof(ftkFrameQuery, markersStat) == 163);
static_assert(sizeof(ftkFrameQuery) == 164);

// Callbacks have the shapes the plugin's functions are passed as.
static_assert(std::is_same_v<ftkDeviceEnumCallback, void (*)(uint64, void*, ftkDeviceType)>);
static_assert(std::is_same_v<ftkOptionsEnumCallback, void (*)(uint64, void*, ftkOptionsInfo*)>);
static_assert(std::is_same_v<ftkLibrary, ftkLibraryImp*>);

} // namespace

// The bit fields are laid out from bit 0 in declaration order, and the uint32 conversions agree
// with them in both directions.
TEST(InterfaceLayout, StatusBitsRoundTripThroughUint32) {
    ftkStatus status{};
    EXPECT_EQ(uint32(status), 0u);
    status.RightEdge = 1;
    EXPECT_EQ(uint32(status), 0x1u);
    status = ftkStatus{};
    status.ThreeDcrop = 1;
    status.BottomEdge = 1;
    EXPECT_EQ(uint32(status), 0x42u);

    const ftkStatus fromBits(0x24u);
    EXPECT_EQ(fromBits.LeftEdge, 1u);
    EXPECT_EQ(fromBits.WorkingVolume, 1u);
    EXPECT_EQ(fromBits.RightEdge + fromBits.BottomEdge + fromBits.TopEdge + fromBits.SensorCrop, 0u);
    EXPECT_EQ(uint32(ftkStatus(0xDEADBEEFu)), 0xDEADBEEFu);

    ftkOptionStatus access{};
    access.write = 1;
    access.globalOption = 1;
    uint32 accessBits = 0;
    static_assert(sizeof(accessBits) == sizeof(access));
    std::memcpy(&accessBits, &access, sizeof(access));
    EXPECT_EQ(accessBits, 0x12u);
}
