#include "simulator/src/OptionCatalog.h"

#include <limits>

namespace Kestrion::Simulator {

namespace {

OptionDefinition option(std::uint32_t id, const char* name, ftkComponent component, ftkOptionType type,
                        const char* unit, const char* description) {
    OptionDefinition d;
    d.id = id;
    d.name = name;
    d.component = component;
    d.type = type;
    d.unit = unit;
    d.description = description;
    return d;
}

OptionDefinition intOption(std::uint32_t id, const char* name, ftkComponent component, std::int32_t min,
                           std::int32_t max, std::int32_t def, const char* unit, const char* description) {
    OptionDefinition d = option(id, name, component, ftkOptionType::FTK_INT32, unit, description);
    d.minInt = min;
    d.maxInt = max;
    d.defaultInt = def;
    return d;
}

OptionDefinition floatOption(std::uint32_t id, const char* name, ftkComponent component, float min, float max,
                             float def, const char* unit, const char* description) {
    OptionDefinition d = option(id, name, component, ftkOptionType::FTK_FLOAT32, unit, description);
    d.minFloat = min;
    d.maxFloat = max;
    d.defaultFloat = def;
    return d;
}

OptionDefinition readOnly(OptionDefinition d) {
    d.write = false;
    return d;
}

} // namespace

OptionTable OptionCatalog::deviceOptions(const DeviceModel& model) {
    using C = ftkComponent;
    OptionTable t;
    t.add(intOption(IntegrationTime, "Image Integration Time", C::FTK_DEVICE_DETECTOR, model.integrationMinUS,
                    model.integrationMaxUS, model.integrationDefaultUS, "us",
                    "Exposure time of the image sensors; a longer exposure gives brighter blobs"));
    t.add(intOption(CompressionThreshold, "Image Compression Threshold", C::FTK_DEVICE, 0, 255, 16,
                    "grey level", "Pixels darker than this are sent as zero when images are compressed"));
    t.add(intOption(IrStrobe, "Enables IR strobe", C::FTK_DEVICE, 0, 1, 1, "",
                    "Switches the infrared illumination; without it passive fiducials are not seen"));
    t.add(intOption(UserLed, "Enables the user-LED", C::FTK_DEVICE, 0, 1, 0, "", "Switches the user-LED on"));
    t.add(intOption(UserLedRed, "User-LED red component", C::FTK_DEVICE, 0, 255, 0, "",
                    "Red intensity of the user-LED"));
    t.add(intOption(UserLedGreen, "User-LED green component", C::FTK_DEVICE, 0, 255, 255, "",
                    "Green intensity of the user-LED"));
    t.add(intOption(UserLedBlue, "User-LED blue component", C::FTK_DEVICE, 0, 255, 0, "",
                    "Blue intensity of the user-LED"));
    t.add(intOption(UserLedFrequency, "User-LED frequency", C::FTK_DEVICE, 0, 50, 0, "Hz",
                    "Blinking frequency of the user-LED; 0 keeps it lit"));
    t.add(readOnly(intOption(LostFrames, "Counter of lost frames", C::FTK_DEVICE, 0,
                             std::numeric_limits<std::int32_t>::max(), 0, "frames",
                             "Frames the camera produced that no fetch picked up")));
    t.add(readOnly(floatOption(SensorTemperature, "Sensor temperature", C::FTK_DEVICE, -40.f, 125.f, 25.f,
                               "degC", "Temperature of the left image sensor")));
    t.add(floatOption(MatchingTolerance, "Distance matching tolerance", C::FTK_MATCH2D3D, 0.1f, 10.f, 2.f,
                      "mm",
                      "Largest difference between a measured and a registered inter-fiducial distance for "
                      "the fiducials to be matched to a marker"));
    t.add(floatOption(EpipolarTolerance, "Epipolar matching tolerance", C::FTK_DETECTOR, 0.1f, 20.f, 2.f,
                      "pixels",
                      "Largest distance of a right detection from the epipolar line of a left detection for "
                      "the two to form a 3D fiducial"));
    if (model.usb) {
        t.add(intOption(HostProcessing, "Enable host-side processing", C::FTK_DEVICE, 0, 1, 0, "",
                        "1: the library computes the 3D data from the camera's 2D data; 0: the camera does"));
        t.add(intOption(EmbeddedProcessing, "Enable embedded processing", C::FTK_DEVICE, 0, 1, 1, "",
                        "1: the camera computes the 3D data itself (the inverse of host-side processing)"));
        t.add(intOption(SendImages, "Enable images sending", C::FTK_DEVICE, 0, 1, 0, "",
                        "1: the camera sends its images with every frame; 0: only the detections"));
    }
    return t;
}

OptionDefinition OptionCatalog::replayEnded() {
    return readOnly(intOption(ReplayEnded, "Replay ended", ftkComponent::FTK_DEVICE, 0, 1, 0, "",
                              "1 once the recording played has delivered its last frame"));
}

OptionTable OptionCatalog::globalOptions() {
    OptionDefinition d =
        option(DataDirectory, "Data Directory", ftkComponent::FTK_LIBRARY, ftkOptionType::FTK_DATA, "",
               "Folder where the library keeps its calibration and geometry files");
    d.global = true;
    d.defaultData = "data";
    OptionTable t;
    t.add(d);
    return t;
}

} // namespace Kestrion::Simulator
