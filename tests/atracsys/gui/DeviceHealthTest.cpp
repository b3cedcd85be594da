// The camera health panel shows what the simulated camera reports about itself: its sensor's
// temperature and its other values, read through the stream once a second, and none of them
// once the camera is closed or while a value cannot be read.

#include "atracsys/stream/AtracsysTrackingStream.h"
#include "host/lib/trackingviews/StreamHealthView.h"
#include "tests/atracsys/gui/GuiTestSupport.h"
#include "tests/atracsys/stream/StreamTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace Kestrion;

namespace {

const DeviceReading* find(const std::vector<DeviceReading>& readings, const std::string& name) {
    const auto found = std::find_if(readings.begin(), readings.end(),
                                    [&](const DeviceReading& r) { return r.name == name; });
    return found == readings.end() ? nullptr : &*found;
}

} // namespace

TEST(DeviceHealth, TheHealthViewShowsTheCamerasTemperatureAndValues) {
    GuiTest::ensureApplication();
    TrackingStreamTest::SceneGuard scene{GuiTest::dataFile("static-marker.json")};
    SpryTrack::AtracsysTrackingStream stream("Atracsys Tracking Stream");
    EXPECT_TRUE(stream.readDevice().empty()) << "nothing to read before the camera is open";
    ASSERT_TRUE(stream.open() && stream.start());

    // The readings as data: the read-only temperature, a counter, a setting, with their units.
    const std::vector<DeviceReading> readings = stream.readDevice();
    const DeviceReading* temperature = find(readings, "Sensor temperature");
    const DeviceReading* lost = find(readings, "Counter of lost frames");
    const DeviceReading* integration = find(readings, "Image Integration Time");
    ASSERT_TRUE(temperature && lost && integration);
    EXPECT_EQ(std::make_tuple(temperature->value, temperature->unit, temperature->kind),
              std::make_tuple(std::string("25.0"), std::string("\u00B0C"), DeviceReading::Kind::Temperature));
    EXPECT_EQ(std::make_tuple(lost->unit, lost->kind),
              std::make_tuple(std::string("frames"), DeviceReading::Kind::Measurement));
    EXPECT_EQ(std::make_tuple(integration->value, integration->kind),
              std::make_tuple(std::to_string(stream.imageIntegrationTime()), DeviceReading::Kind::Setting));
    EXPECT_FALSE(find(readings, "Data Directory")) << "library-wide data options are no camera values";

    StreamHealthView view;
    view.setStream(&stream);
    ASSERT_TRUE(GuiTest::processEventsUntil([&] { return view.field("Temperature") == "25.0 \u00B0C"; }))
        << view.field("Temperature").toStdString();
    const QStringList values = view.field("Camera values").split('\n');
    EXPECT_TRUE(values.contains("Counter of lost frames: 0 frames")) << values.join(" | ").toStdString();
    EXPECT_FALSE(view.field("Camera values").contains("temperature")) << "the temperature has its own row";
    EXPECT_FALSE(view.field("Camera values").contains("Image Integration Time"))
        << "a setting, no health value";
    EXPECT_TRUE(
        view.toolTip("Camera values")
            .split('\n')
            .contains(QStringLiteral("Image Integration Time: %1 us").arg(stream.imageIntegrationTime())))
        << view.toolTip("Camera values").toStdString();

    // A value the camera refuses to give now is left out, the others stay.
    ASSERT_TRUE(ftkSimInjectFault(
        stream.cameraInUse().serialNumber,
        R"({"kind": "optionRefusal", "option": "Sensor temperature", "operation": "get"})"));
    ASSERT_TRUE(GuiTest::processEventsUntil([&] { return view.field("Temperature") == "-"; }));
    EXPECT_TRUE(view.field("Camera values").contains("Counter of lost frames: "));

    ASSERT_TRUE(stream.close());
    ASSERT_TRUE(GuiTest::processEventsUntil([&] { return view.field("Camera values").isEmpty(); }));
    view.setStream(nullptr);
    EXPECT_EQ(view.field("Temperature"), "");
}
