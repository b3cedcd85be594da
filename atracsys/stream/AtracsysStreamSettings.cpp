#include "atracsys/stream/AtracsysStreamSettings.h"

#include "atracsys/recording/AtracsysRecorder.h"
#include "atracsys/stream/AtracsysTrackingStream.h"

#include "host/core/Log.h"
#include "host/core/Properties.h"
#include "host/stream/connection/CameraSelection.h"
#include "host/stream/state/InstrumentNames.h"

#include <utility>

namespace Kestrion::SpryTrack {

namespace {

constexpr const char* Category = "AtracsysTrackingStream";
constexpr const char* IntegrationTimeKey = "imageIntegrationTime";
constexpr const char* FiducialQueryModeKey = "fiducialQueryMode";
constexpr const char* QueryImagesKey = "queryImages";
constexpr const char* ConnectKey = "connect";
constexpr const char* MaxFiducialMarkerDistanceKey = "maxFiducialMarkerDistance";
constexpr const char* RegistrationErrorThresholdKey = "registrationErrorThreshold";
constexpr const char* FramePacingKey = "framePacingMs";
constexpr const char* ReconnectKey = "reconnect";
constexpr const char* CameraSerialKey = "cameraSerialNumber";
constexpr const char* RecordFileKey = "recordFile";
constexpr const char* RecordImagesKey = "recordImages";
constexpr const char* RecordReplaceKey = "recordReplace";
constexpr const char* InstrumentNamesKey = "instrumentNames";
constexpr const char* ReferenceInstrumentKey = "referenceInstrument";
constexpr const char* TargetsKey = "TrackingTargets";

} // namespace

void AtracsysStreamSettings::configure(const Properties& properties, AtracsysTrackingStream& stream,
                                       AtracsysRecorder& recorder) {
    int integrationTime = 0;
    if (properties.getParam(IntegrationTimeKey, integrationTime)) {
        m_imageIntegrationTime = integrationTime;
        if (stream.isInitialized())
            stream.setImageIntegrationTime(integrationTime);
    }
    int mode = 0;
    if (properties.getParam(FiducialQueryModeKey, mode))
        setFiducialQueryMode(static_cast<AtracsysTrackingStreamBase::FiducialQueryMode>(mode));
    bool flag = false;
    if (properties.getParam(QueryImagesKey, flag))
        setQueryImages(flag);
    if (properties.getParam(ConnectKey, flag))
        setStartAfterInit(flag);
    double distance = 0.0;
    if (properties.getParam(MaxFiducialMarkerDistanceKey, distance))
        setMaxFiducialMarkerDistance(distance);
    if (properties.getParam(RegistrationErrorThresholdKey, distance))
        setRegistrationErrorThreshold(distance);
    std::string recordFile;
    if (properties.getParam(RecordFileKey, recordFile))
        recorder.setTarget(recordFile, properties.param(RecordImagesKey, false),
                           properties.param(RecordReplaceKey, false));
    int pacing = 0;
    if (properties.getParam(FramePacingKey, pacing))
        setFramePacingMs(pacing);
    if (properties.getParam(ReconnectKey, flag))
        setReconnect(flag);
    std::string text;
    std::uint64_t serialNumber = 0;
    if (properties.getParam(CameraSerialKey, text)) {
        if (CameraSelection::parseSerial(text, serialNumber))
            setCameraSerial(serialNumber);
        else
            KESTRION_LOG_ERROR(Category,
                               "The camera serial number \"" << text << "\" is not a number; it is ignored");
    }
    if (properties.getParam(InstrumentNamesKey, text))
        stream.setInstrumentNames(parseInstrumentNames(text));
    if (properties.getParam(ReferenceInstrumentKey, text))
        stream.setReferenceInstrument(text);

    const Properties* targets = properties.subProperty(TargetsKey);
    if (!targets)
        return;
    for (const Properties* target : targets->subProperties()) {
        std::string path;
        if (!target->getParam("Path", path))
            continue;
        // Qt resource paths (":/...") are not files: they stay as they are.
        if (path.compare(0, 2, ":/") != 0)
            path = target->absolutePath(path);
        stream.addGeometry(target->name(), path);
    }
}

void AtracsysStreamSettings::configuration(
    Properties& properties, const AtracsysTrackingStream& stream,
    const std::vector<std::pair<std::string, std::string>>& targets) const {
    const bool initialized = stream.isInitialized();
    const int integrationTime = initialized ? stream.imageIntegrationTime() : m_imageIntegrationTime.load();
    if (integrationTime >= 1)
        properties.setParam(IntegrationTimeKey, integrationTime);
    properties.setParam(FiducialQueryModeKey, static_cast<int>(m_fiducialQueryMode.load()));
    properties.setParamAttribute(FiducialQueryModeKey, "hidden", "true");
    properties.setParam(QueryImagesKey, queryImages());
    properties.setParamAttribute(QueryImagesKey, "hidden", "true");
    properties.setParam(ConnectKey, initialized);
    properties.setParamAttribute(ConnectKey, "hidden", "true");
    properties.setParam(MaxFiducialMarkerDistanceKey, maxFiducialMarkerDistance());
    // Written only when they differ from the defaults, so that older configurations stay as they are.
    if (registrationErrorThreshold() != DefaultRegistrationErrorThreshold)
        properties.setParam(RegistrationErrorThresholdKey, registrationErrorThreshold());
    if (framePacingMs() != DefaultFramePacingMs)
        properties.setParam(FramePacingKey, framePacingMs());
    if (reconnect()) {
        properties.setParam(ReconnectKey, true);
        properties.setParamAttribute(ReconnectKey, "hidden", "true"); // the panel's check box shows it
    }
    if (cameraSerial() != 0)
        properties.setParam(CameraSerialKey, CameraSelection::serialText(cameraSerial()));
    if (const auto names = stream.instrumentNames(); names && !names->empty())
        properties.setParam(InstrumentNamesKey, instrumentNamesText(*names));
    if (const std::string reference = stream.referenceInstrument(); !reference.empty())
        properties.setParam(ReferenceInstrumentKey, reference);

    Properties* block = properties.addSubProperties(TargetsKey);
    block->setAttribute("hidden", "true");
    for (const auto& [name, path] : targets)
        block->addSubProperties(name)->setParam("Path", path);
}

std::vector<std::string> AtracsysStreamSettings::optionalKeys() {
    return {IntegrationTimeKey, RegistrationErrorThresholdKey,
            FramePacingKey,     ReconnectKey,
            CameraSerialKey,    RecordFileKey,
            RecordImagesKey,    RecordReplaceKey,
            InstrumentNamesKey, ReferenceInstrumentKey};
}

InstrumentNames AtracsysStreamSettings::parseInstrumentNames(const std::string& text) {
    InstrumentNames names;
    std::size_t begin = 0;
    while (begin <= text.size()) {
        std::size_t end = text.find(';', begin);
        if (end == std::string::npos)
            end = text.size();
        const std::string pair = text.substr(begin, end - begin);
        begin = end + 1;
        if (pair.empty())
            continue;
        const std::size_t equals = pair.find('=');
        if (equals == std::string::npos || equals == 0) {
            KESTRION_LOG_ERROR(Category, "The instrument name \""
                                             << pair << "\" of the key " << InstrumentNamesKey
                                             << " is not \"<instrument id>=<name>\"; it is ignored");
            continue;
        }
        const std::string id = pair.substr(0, equals);
        if (const auto problem = names.setName(id, pair.substr(equals + 1)))
            KESTRION_LOG_ERROR(Category, "The name of " << id << " is ignored: " << *problem);
    }
    return names;
}

std::string AtracsysStreamSettings::instrumentNamesText(const InstrumentNames& names) {
    std::string text;
    for (const auto& [id, name] : names.names())
        text += (text.empty() ? "" : ";") + id + "=" + name;
    return text;
}

} // namespace Kestrion::SpryTrack
