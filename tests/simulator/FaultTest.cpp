// Scripted faults, each observed through the camera interface as the plugin would see it.

#include "tests/simulator/SimulatorTestSupport.h"

using namespace Kestrion::SimulatorTest;

namespace {

const char* OneDevice = R"({"devices": [{"serial": 21}], "markers": [{"geometryId": 1000,
    "fiducials": [[0,0,0],[31,82,0],[96,-10,0],[61,46,0]], "motion": {"type": "static", "position": [0, 0, 800]}}]})";

void inject(const char* fault, uint64 serial = 21) {
    EXPECT_TRUE(ftkSimInjectFault(serial, fault)) << controlError();
}

} // namespace

TEST(Faults, FetchFaultsFailOrMarkTheirFramesOnSchedule) {
    SceneGuard scene(OneDevice);
    Camera camera;
    ASSERT_EQ(camera.setGeometry(makeGeometry(1000, Marker1000)), ftkError::FTK_OK);
    inject(R"({"kind": "fetchError", "code": "FTK_ERR_READ", "atFetch": 2, "count": 3})");
    inject(R"({"kind": "internalError", "atFetch": 6})");
    inject(R"({"kind": "markerOverflow", "atFetch": 7})");
    inject(R"({"kind": "invalidReservedSize", "atFetch": 8})");
    inject(R"({"kind": "skipped", "atFetch": 9, "count": 2})");
    using E = ftkError;
    using Q = ftkQueryStatus;
    const E results[] = {E::FTK_OK,       E::FTK_ERR_READ, E::FTK_ERR_READ,
                         E::FTK_ERR_READ, E::FTK_OK,       E::FTK_ERR_INTERNAL};
    const Q markers[] = {Q::QS_ERR_OVERFLOW, Q::QS_ERR_INVALID_RESERVED_SIZE, Q::QS_WAR_SKIPPED,
                         Q::QS_WAR_SKIPPED, Q::QS_OK};
    for (E result : results) {
        EXPECT_EQ(camera.fetch(), result) << "fetch " << ftkSimFetchCount(21);
    }
    const uint32 counter = camera.frame->imageHeader->counter; // of the fifth fetch
    for (Q status : markers) {
        ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
        EXPECT_EQ(camera.frame->markersStat, status) << "fetch " << ftkSimFetchCount(21);
        EXPECT_EQ(+camera.frame->markersCount, 1u) << "the frame itself is delivered";
    }
    EXPECT_NE(camera.errorText().find("<error code=\"4\" name=\"FTK_ERR_INTERNAL\">"), std::string::npos);
    EXPECT_EQ(+camera.frame->imageHeader->counter, counter + 6) << "failed fetches lose their frames";
    EXPECT_EQ(ftkSimFetchCount(21), 11u);
}

TEST(Faults, AMarkerFaultTakenByAFetchThatBroughtNoFrameMarksTheNextFrame) {
    SceneGuard scene(OneDevice, false); // free running: a fetch without wait finds no new frame
    Camera camera;
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    inject(R"({"kind": "markerOverflow"})"); // one fetch, from now on
    // Empty, unless the next frame came in the meantime: then that frame carries the fault.
    const ftkError empty = camera.fetch();
    if (empty != ftkError::FTK_OK) {
        EXPECT_EQ(empty, ftkError::FTK_WAR_NO_FRAME);
        ASSERT_EQ(camera.fetch(1000), ftkError::FTK_OK);
    }
    EXPECT_EQ(camera.frame->markersStat, ftkQueryStatus::QS_ERR_OVERFLOW);
    ASSERT_EQ(camera.fetch(1000), ftkError::FTK_OK);
    EXPECT_EQ(camera.frame->markersStat, ftkQueryStatus::QS_OK) << "one frame only";
}

TEST(Faults, ADisconnectedDeviceFailsEveryCallAndIsNoLongerEnumerated) {
    SceneGuard scene(OneDevice);
    Camera camera;
    inject(R"({"kind": "disconnection", "atFetch": 3})");
    for (ftkError e : {ftkError::FTK_OK, ftkError::FTK_OK, ftkError::FTK_ERR_DISCONNECTION,
                       ftkError::FTK_ERR_DISCONNECTION}) {
        EXPECT_EQ(camera.fetch(), e);
    }
    EXPECT_NE(camera.errorText().find("FTK_ERR_DISCONNECTION"), std::string::npos);
    EXPECT_EQ(camera.getInt(16), ftkError::FTK_ERR_DISCONNECTION);
    ftkError status = ftkError::FTK_OK;
    EXPECT_TRUE(enumerateOptions(camera.lib, 21, &status).empty());
    EXPECT_EQ(status, ftkError::FTK_ERR_DISCONNECTION);
    EXPECT_TRUE(ftkSimClearFaults(21));
    EXPECT_EQ(camera.fetch(), ftkError::FTK_ERR_DISCONNECTION) << "clearing faults does not plug it back";

    Camera later;
    EXPECT_EQ(later.serial, 0u) << "nothing to enumerate";
    EXPECT_TRUE(ftkSimResetScene()) << "a new scene brings new devices";
}

TEST(Faults, EnumerationFaultsHideTheDeviceOrReturnAStatus) {
    SceneGuard scene(R"({"devices": [{"serial": 31}, {"serial": 32, "model": "fusionTrack 250",
        "faults": [{"kind": "noDevice"}]}]})");
    ftkLibrary lib = ftkInit();
    Enumeration e = enumerate(lib);
    EXPECT_EQ(e.status, ftkError::FTK_OK);
    ASSERT_EQ(e.devices.size(), 1u);
    EXPECT_EQ(e.devices[0].first, 31u);

    inject(R"({"kind": "enumerationStatus", "code": "FTK_WAR_SN_ABSENT", "count": 1})", 31);
    e = enumerate(lib);
    EXPECT_EQ(e.status, ftkError::FTK_WAR_SN_ABSENT);
    EXPECT_EQ(e.devices.size(), 1u) << "a warning still reports the device";
    inject(R"({"kind": "enumerationStatus", "code": 4, "reportDevices": false})", 31);
    e = enumerate(lib);
    EXPECT_EQ(e.status, ftkError::FTK_ERR_INTERNAL);
    EXPECT_TRUE(e.devices.empty());
    ftkClose(&lib);
}

TEST(Faults, OptionAndGeometryRefusals) {
    SceneGuard scene(OneDevice);
    Camera camera;
    const uint32 integration = camera.option("Image Integration Time");
    inject(R"({"kind": "optionRefusal", "option": "Image Integration Time", "count": 1})");
    inject(
        R"({"kind": "optionRefusal", "option": 6003, "operation": "both", "code": "FTK_ERR_INV_OPT_ACC"})");
    EXPECT_EQ(camera.setInt(integration, 300), ftkError::FTK_ERR_WRITE);
    EXPECT_EQ(camera.getInt(integration), ftkError::FTK_OK);
    EXPECT_EQ(camera.setInt(integration, 300), ftkError::FTK_OK) << "refused once only";
    EXPECT_EQ(camera.setInt(6003, 1), ftkError::FTK_ERR_INV_OPT_ACC);
    EXPECT_EQ(camera.getInt(6003), ftkError::FTK_ERR_INV_OPT_ACC);

    // Reads refused for one getter only, every time; "both" refuses writes too.
    inject(
        R"({"kind": "optionRefusal", "option": "Image Integration Time", "operation": "get", "getter": "min"})");
    inject(R"({"kind": "optionRefusal", "option": "Distance matching tolerance", "operation": "both",
               "getter": "max", "code": "FTK_ERR_INTERNAL"})");
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(camera.getInt(integration, ftkOptionGetter::FTK_MIN_VAL), ftkError::FTK_ERR_READ);
    }
    EXPECT_EQ(camera.getInt(integration, ftkOptionGetter::FTK_MAX_VAL), ftkError::FTK_OK);
    EXPECT_EQ(camera.setInt(integration, 300), ftkError::FTK_OK);
    EXPECT_EQ(camera.getFloat(2003, ftkOptionGetter::FTK_MAX_VAL), ftkError::FTK_ERR_INTERNAL);
    EXPECT_EQ(camera.getFloat(2003, ftkOptionGetter::FTK_MIN_VAL), ftkError::FTK_OK);
    EXPECT_EQ(camera.setFloat(2003, 1.f), ftkError::FTK_ERR_INTERNAL);

    const ftkGeometry g = makeGeometry(1000, Marker1000);
    inject(R"({"kind": "geometryRefusal", "geometryId": 1000, "count": 1})");
    inject(R"({"kind": "geometryRefusal", "operation": "clear", "code": 21})");
    EXPECT_EQ(camera.setGeometry(g), ftkError::FTK_ERR_GEOM_PTS);
    EXPECT_EQ(camera.setGeometry(g), ftkError::FTK_OK);
    EXPECT_EQ(ftkClearGeometry(camera.lib, 21, 1000), ftkError::FTK_ERR_GEOM_REGISTERED);
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    EXPECT_EQ(+camera.frame->markersCount, 1u) << "a refused removal keeps the geometry";
}

TEST(Faults, MalformedOptionEntries) {
    SceneGuard scene(OneDevice);
    Camera camera;
    const uint32 integration = camera.option("Image Integration Time");
    inject(R"({"kind": "malformedOption", "option": 17, "malformation": "nullName"})");
    inject(R"({"kind": "malformedOption", "option": "Enables IR strobe", "malformation": "unknownType"})");
    inject(
        R"({"kind": "malformedOption", "option": "Image Integration Time", "malformation": "duplicateName"})");
    inject(R"({"kind": "malformedOption", "option": "User-LED frequency", "malformation": "nullUnit"})");
    inject(R"({"kind": "optionEnumerationStatus", "code": "FTK_WAR_NOT_SUPPORTED"})");
    ftkError status = ftkError::FTK_OK;
    int nullNames = 0;
    int typeTwo = 0;
    std::vector<uint32> integrationIds;
    for (const OptionInfo& o : enumerateOptions(camera.lib, 21, &status)) {
        nullNames += o.hasName ? 0 : 1;
        typeTwo += o.type == 2 ? 1 : 0;
        if (o.name == "Image Integration Time") {
            integrationIds.push_back(o.id);
        }
        EXPECT_FALSE(o.hasUnit && o.name == "User-LED frequency");
    }
    EXPECT_EQ(status, ftkError::FTK_WAR_NOT_SUPPORTED);
    EXPECT_EQ(nullNames, 1);
    EXPECT_EQ(typeTwo, 1);
    ASSERT_EQ(integrationIds.size(), 2u);
    EXPECT_EQ(integrationIds[0], integration) << "the real id comes first";
    EXPECT_EQ(camera.getInt(integrationIds[1]), ftkError::FTK_ERR_INV_OPT);
}

TEST(Faults, InvalidFaultDescriptionsAreRefusedWithTheReason) {
    SceneGuard scene(OneDevice);
    const std::pair<const char*, const char*> refused[] = {
        {R"({"kind": "meltdown"})", "fault.kind: unknown fault 'meltdown'"},
        {R"({"kind": "fetchError"})", "fault: a fetchError fault needs \"code\""},
    };
    for (const auto& [fault, reason] : refused) {
        EXPECT_FALSE(ftkSimInjectFault(21, fault));
        EXPECT_EQ(controlError(), std::string("ftkSimInjectFault: ") + reason);
    }
    EXPECT_FALSE(ftkSimInjectFault(22, R"({"kind": "noDevice"})"));
    EXPECT_EQ(controlError(), "ftkSimInjectFault: no device with serial 22 in the current scene");
    EXPECT_TRUE(ftkSimInjectFault(21, R"({"kind": "noDevice"})"));
    EXPECT_EQ(controlError(), "");
}
