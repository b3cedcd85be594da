#include "simulator/src/Device.h"

#include "simulator/src/ErrorCodes.h"
#include "simulator/src/OptionCatalog.h"
#include "simulator/src/Random.h"
#include "simulator/src/ReplaySource.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <thread>

namespace Kestrion::Simulator {

namespace {

std::string optionText(std::uint32_t id, const OptionDefinition* d) {
    return "option " + std::to_string(id) + (d != nullptr ? " (\"" + d->name + "\")" : std::string());
}

/// Why an option call failed, in words.
std::string optionFailure(ftkError status, std::uint32_t id, const OptionDefinition* d,
                          const std::string& device) {
    const std::string what = optionText(id, d) + " of device " + device;
    switch (status) {
    case ftkError::FTK_ERR_INV_OPT:
        return "Unknown " + what;
    case ftkError::FTK_ERR_INV_OPT_PAR:
        return "Wrong value type or getter for " + what;
    case ftkError::FTK_ERR_INV_OPT_ACC:
        return "Access refused to " + what;
    case ftkError::FTK_ERR_INV_OPT_VAL:
        return "Invalid value for " + what;
    case ftkError::FTK_WAR_OPT_VAL_RANGE:
        return "Value out of range for " + what + ", clamped";
    default:
        return std::string(ErrorCodes::name(status) ? ErrorCodes::name(status) : "Error") + " on " + what;
    }
}

} // namespace

Device::Device(const DeviceDescription& description, std::shared_ptr<const SceneDescription> scene,
               const std::atomic<bool>& steppedClock)
    : m_serial(description.serial)
    , m_model(description.model)
    , m_steppedClock(steppedClock)
    , m_options(OptionCatalog::deviceOptions(description.model))
    , m_clock(DeviceClock::Settings{description.model.rateHz, description.model.clockDriftPPM,
                                    description.model.deliveryJitterMS,
                                    Random::mix(scene->seed, description.serial ^ 0x64656c6179ull)},
              std::chrono::steady_clock::now(), steppedClock.load())
    , m_producer(description.model, std::move(scene), description.serial) {
    for (const OptionDefinition& extra : description.extraOptions) {
        m_options.add(extra);
    }
    for (const FaultRule& fault : description.faults) {
        m_faults.add(fault);
    }
}

Device::~Device() = default;

void Device::setReplay(std::unique_ptr<ReplaySource> replay) {
    m_rematch = replay && replay->markers() == ReplaySource::Markers::Matched;
    m_replay = std::move(replay);
    if (m_replay) {
        m_options.add(OptionCatalog::replayEnded());
    }
}

bool Device::hidden() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_faults.hidesDevice();
}

bool Device::enumerate(ftkError& status) {
    std::lock_guard<std::mutex> lock(m_mutex);
    status = ftkError::FTK_OK;
    if (m_faults.hidesDevice()) {
        return false;
    }
    bool report = true;
    if (auto scripted = m_faults.enumerationStatus(report)) {
        status = *scripted;
    }
    return report && !disconnectedLocked();
}

ftkError Device::optionGate(std::uint32_t id, bool set, ftkOptionGetter what, std::string& message) {
    if (disconnectedLocked()) {
        message = "Device " + ErrorCodes::serialText(m_serial) + " is disconnected";
        return ftkError::FTK_ERR_DISCONNECTION;
    }
    const OptionDefinition* d = m_options.find(id);
    static const std::string noName;
    if (auto refusal = m_faults.optionRefusal(id, d != nullptr ? d->name : noName, set, what)) {
        message = optionFailure(*refusal, id, d, ErrorCodes::serialText(m_serial)) + " (simulated fault)";
        return *refusal;
    }
    return ftkError::FTK_OK;
}

ftkError Device::getInt(std::uint32_t id, ftkOptionGetter what, std::int32_t& out, std::string& message) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ftkError status = optionGate(id, false, what, message);
    if (status == ftkError::FTK_OK) {
        status = m_options.getInt(id, what, out);
        if (status != ftkError::FTK_OK) {
            message = optionFailure(status, id, m_options.find(id), ErrorCodes::serialText(m_serial));
        }
    }
    return status;
}

ftkError Device::getFloat(std::uint32_t id, ftkOptionGetter what, float& out, std::string& message) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ftkError status = optionGate(id, false, what, message);
    if (status == ftkError::FTK_OK) {
        status = m_options.getFloat(id, what, out);
        if (status != ftkError::FTK_OK) {
            message = optionFailure(status, id, m_options.find(id), ErrorCodes::serialText(m_serial));
        }
    }
    return status;
}

ftkError Device::getData(std::uint32_t id, ftkBuffer& out, std::string& message) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ftkError status = optionGate(id, false, ftkOptionGetter::FTK_VALUE, message);
    if (status == ftkError::FTK_OK) {
        status = m_options.getData(id, out);
        if (status != ftkError::FTK_OK) {
            message = optionFailure(status, id, m_options.find(id), ErrorCodes::serialText(m_serial));
        }
    }
    return status;
}

ftkError Device::setInt(std::uint32_t id, std::int32_t value, std::string& message) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ftkError status = optionGate(id, true, ftkOptionGetter::FTK_VALUE, message);
    if (status == ftkError::FTK_OK) {
        status = m_options.setInt(id, value);
        if (status != ftkError::FTK_OK) {
            message = optionFailure(status, id, m_options.find(id), ErrorCodes::serialText(m_serial));
        }
        if (static_cast<int>(status) <= 0) {
            mirrorProcessingOptions(id);
        }
    }
    return status;
}

ftkError Device::setFloat(std::uint32_t id, float value, std::string& message) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ftkError status = optionGate(id, true, ftkOptionGetter::FTK_VALUE, message);
    if (status == ftkError::FTK_OK) {
        status = m_options.setFloat(id, value);
        if (status != ftkError::FTK_OK) {
            message = optionFailure(status, id, m_options.find(id), ErrorCodes::serialText(m_serial));
        }
    }
    return status;
}

ftkError Device::setData(std::uint32_t id, const ftkBuffer& value, std::string& message) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ftkError status = optionGate(id, true, ftkOptionGetter::FTK_VALUE, message);
    if (status == ftkError::FTK_OK) {
        status = m_options.setData(id, value);
        if (status != ftkError::FTK_OK) {
            message = optionFailure(status, id, m_options.find(id), ErrorCodes::serialText(m_serial));
        }
    }
    return status;
}

void Device::mirrorProcessingOptions(std::uint32_t id) {
    // Host-side and embedded processing are two views of one switch.
    if (id == OptionCatalog::HostProcessing) {
        m_options.forceInt(OptionCatalog::EmbeddedProcessing,
                           1 - m_options.intValue(OptionCatalog::HostProcessing));
    } else if (id == OptionCatalog::EmbeddedProcessing) {
        m_options.forceInt(OptionCatalog::HostProcessing,
                           1 - m_options.intValue(OptionCatalog::EmbeddedProcessing));
    }
}

ftkError Device::optionInfos(std::vector<ftkOptionsInfo>& infos) {
    std::lock_guard<std::mutex> lock(m_mutex);
    infos.clear();
    if (disconnectedLocked()) {
        return ftkError::FTK_ERR_DISCONNECTION;
    }
    for (const OptionDefinition& d : m_options.definitions()) {
        ftkOptionsInfo info{};
        info.id = d.id;
        info.component = d.component;
        info.status.read = d.read ? 1u : 0u;
        info.status.write = d.write ? 1u : 0u;
        info.status.globalOption = d.global ? 1u : 0u;
        info.type = d.type;
        const FaultRule::Malformations malformed = m_faults.malformations(d.id, d.name);
        const auto has = [malformed](FaultRule::Malformation m) {
            return (malformed & FaultRule::bit(m)) != 0;
        };
        info.name = has(FaultRule::Malformation::NullName) ? nullptr : d.name.c_str();
        info.description = has(FaultRule::Malformation::NullDescription) ? nullptr : d.description.c_str();
        info.unit = has(FaultRule::Malformation::NullUnit) ? nullptr : d.unit.c_str();
        if (has(FaultRule::Malformation::UnknownType)) {
            info.type = static_cast<ftkOptionType>(2);
        }
        infos.push_back(info);
        if (has(FaultRule::Malformation::DuplicateName)) {
            // The same name once more, under an id the device does not know.
            info.id = d.id + 1000000;
            infos.push_back(info);
        }
    }
    return m_faults.optionEnumerationStatus().value_or(ftkError::FTK_OK);
}

bool Device::applySetting(const OptionSetting& setting, std::string& message) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const OptionDefinition* d = setting.id ? m_options.find(*setting.id) : m_options.findByName(setting.name);
    const std::string label = setting.id ? std::to_string(*setting.id) : "\"" + setting.name + "\"";
    if (d == nullptr) {
        message = "the " + std::string(DeviceModel::name(m_model.type)) + " has no option " + label;
        return false;
    }
    ftkError status = ftkError::FTK_OK;
    if (d->type == ftkOptionType::FTK_DATA) {
        if (!setting.isText || setting.text.size() > BUFFER_MAX_SIZE) {
            message =
                "option " + label + " takes a text of at most " + std::to_string(BUFFER_MAX_SIZE) + " bytes";
            return false;
        }
        ftkBuffer buffer{};
        std::copy(setting.text.begin(), setting.text.end(), buffer.data);
        buffer.size = static_cast<std::uint32_t>(setting.text.size());
        status = m_options.setData(d->id, buffer);
    } else if (setting.isText) {
        message = "option " + label + " takes a number";
        return false;
    } else if (d->type == ftkOptionType::FTK_INT32) {
        if (setting.number != std::floor(setting.number)) {
            message = "option " + label + " takes a whole number";
            return false;
        }
        status = m_options.setInt(d->id, static_cast<std::int32_t>(std::clamp(
                                             setting.number, double(std::numeric_limits<std::int32_t>::min()),
                                             double(std::numeric_limits<std::int32_t>::max()))));
        mirrorProcessingOptions(d->id);
    } else {
        status = m_options.setFloat(d->id, static_cast<float>(setting.number));
    }
    if (status != ftkError::FTK_OK) {
        message =
            "option " + label + ": " + optionFailure(status, d->id, d, ErrorCodes::serialText(m_serial));
        return false;
    }
    return true;
}

std::optional<ftkError> Device::geometryRefusal(std::uint32_t geometryId, bool clear) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_faults.geometryRefusal(geometryId, clear);
}

ftkError Device::admitFetch(bool hasLast, std::uint64_t lastIndex, std::uint32_t timeoutMS,
                            std::uint64_t& index, DeliveryFaults& faults, std::string& message) {
    std::unique_lock<std::mutex> lock(m_mutex);
    // Texts are made only on the failure paths: a successful fetch allocates nothing here.
    const auto device = [this] { return ErrorCodes::serialText(m_serial); };
    if (disconnectedLocked()) {
        message = "Device " + device() + " is disconnected";
        return ftkError::FTK_ERR_DISCONNECTION;
    }
    ++m_fetches;
    auto now = std::chrono::steady_clock::now();
    const bool stepped = m_steppedClock.load();
    const std::uint64_t current = m_clock.currentIndex(stepped, now);
    const FaultScript::FetchOutcome outcome =
        m_faults.onFetch(m_fetches, timeOfIndex(stepped ? current + 1 : current));
    if (stepped && (outcome.disconnect || outcome.error != ftkError::FTK_OK)) {
        // With the stepped clock each fetch is one frame period: a failed one loses its frame.
        m_clock.takeNext(true, now);
    }
    if (outcome.disconnect) {
        m_disconnected = true;
        m_reconnectAtS = outcome.reconnectAtS;
        message = "Device " + device() + " was disconnected";
        return ftkError::FTK_ERR_DISCONNECTION;
    }
    if (outcome.error != ftkError::FTK_OK) {
        const char* name = ErrorCodes::name(outcome.error);
        message = "Frame acquisition on device " + device() + " failed with " + (name ? name : "an error") +
                  " (simulated fault)";
        return outcome.error;
    }
    faults = outcome.delivery;

    const auto deadline = now + std::chrono::milliseconds(timeoutMS);
    // A replay has no frame after the recording's last one.
    const auto deliver = [this, &message, &now](std::uint64_t taken) {
        if (m_replay && !m_replayStarted) {
            // The recording starts with the first frame fetched, whenever that is.
            m_replayStarted = true;
            m_replayBase = taken;
            m_replayStart = now;
        }
        if (m_replay && taken - m_replayBase >= m_replay->frameCount()) {
            message = "The recording " + m_replay->path() + " ended after " +
                      std::to_string(m_replay->frameCount()) + " frames";
            return ftkError::FTK_WAR_NO_FRAME;
        }
        return ftkError::FTK_OK;
    };
    for (;;) {
        if (m_steppedClock.load()) {
            index = m_clock.takeNext(true, now);
            return deliver(index);
        }
        const std::uint64_t newest = newestLocked(now);
        if (!hasLast || newest > lastIndex) {
            index = newest;
            return deliver(index);
        }
        const std::optional<DeviceClock::TimePoint> next = arrivalLocked(lastIndex + 1);
        // The wait happens without the lock, so options and geometries stay usable meanwhile.
        lock.unlock();
        if (!next || *next > deadline) {
            // A replay that has ended waits like a camera that sends nothing more.
            std::this_thread::sleep_until(deadline);
            message =
                next ? "No new frame from device " + device() + " within " + std::to_string(timeoutMS) + " ms"
                     : "The recording " + m_replay->path() + " ended after " +
                           std::to_string(m_replay->frameCount()) + " frames";
            return ftkError::FTK_WAR_NO_FRAME;
        }
        std::this_thread::sleep_until(*next);
        lock.lock();
        now = std::chrono::steady_clock::now();
    }
}

std::uint64_t Device::newestLocked(DeviceClock::TimePoint now) {
    if (m_replay && m_replayStarted) {
        // A replay under way: the newest recorded frame taken, by the recording's own timestamps,
        // at most as long after the first as the replay has been running.
        const auto elapsed =
            std::chrono::duration_cast<std::chrono::microseconds>(now - m_replayStart).count();
        return m_replayBase + m_replay->frameAt(elapsed > 0 ? static_cast<std::uint64_t>(elapsed) : 0);
    }
    return m_clock.currentIndex(false, now);
}

std::optional<DeviceClock::TimePoint> Device::arrivalLocked(std::uint64_t index) const {
    if (m_replay && m_replayStarted) {
        const std::uint64_t frame = index - m_replayBase;
        if (frame >= m_replay->frameCount()) {
            return std::nullopt;
        }
        return m_replayStart + std::chrono::microseconds(m_replay->timeUS(frame));
    }
    return m_clock.timeOf(index);
}

ProductionSettings Device::settingsLocked() const {
    ProductionSettings s;
    s.irStrobe = m_options.intValue(OptionCatalog::IrStrobe, 1) != 0;
    s.epipolarTolerancePx = m_options.floatValue(OptionCatalog::EpipolarTolerance, 2.f);
    s.integrationTimeUS = m_options.intValue(OptionCatalog::IntegrationTime, m_model.integrationDefaultUS);
    return s;
}

float Device::matchingToleranceLocked() const {
    return m_options.floatValue(OptionCatalog::MatchingTolerance, 2.f);
}

const FrameData& Device::frameLocked(std::uint64_t index, bool wantImages, bool& withImages) {
    const ProductionSettings settings = settingsLocked();
    if (!m_frameValid || m_frame.index != index) {
        if (m_replay) {
            std::string error;
            if (!m_replay->load(index - m_replayBase, m_frame, error)) {
                std::fprintf(stderr, "ftkGetLastFrame: %s\n", error.c_str());
            }
            m_frame.index = index;
        } else {
            m_producer.produce(index, settings, m_frame, m_truth);
            m_truth.exposureUS = m_clock.exposureEpochUS(index);
            m_truth.deliverableUS = m_clock.deliverableEpochUS(index);
        }
        m_frameValid = true;
    }
    const bool imagesEnabled = !m_model.usb || m_options.intValue(OptionCatalog::SendImages) == 1;
    withImages = wantImages && imagesEnabled && (!m_replay || m_frame.hasImages);
    if (!m_delivered || index > m_lastDelivered) {
        if (m_delivered && index > m_lastDelivered + 1) {
            m_lostFrames += index - m_lastDelivered - 1;
            m_options.forceInt(OptionCatalog::LostFrames,
                               static_cast<std::int32_t>(std::min<std::uint64_t>(
                                   m_lostFrames, std::numeric_limits<std::int32_t>::max())));
        }
        m_delivered = true;
        m_lastDelivered = index;
        if (m_replay && index - m_replayBase + 1 >= m_replay->frameCount()) {
            m_options.forceInt(OptionCatalog::ReplayEnded, 1);
        }
    }
    return m_frame;
}

void Device::drawImagesLocked(SensorImage& left, SensorImage& right) {
    if (!m_replay) {
        m_producer.drawImages(settingsLocked(), left, right);
    }
}

void Device::addFault(const FaultRule& fault) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_faults.add(fault);
}

void Device::clearFaults() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_faults.clear();
}

void Device::skipFrames(std::uint64_t frames) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_clock.skip(m_steppedClock.load(), std::chrono::steady_clock::now(), frames);
}

bool Device::exposureTime(std::uint64_t index, std::int64_t& exposureUS) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_replay) {
        return false; // a recording keeps its device times only
    }
    exposureUS = m_clock.exposureEpochUS(index);
    return true;
}

std::uint64_t Device::fetchCount() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_fetches;
}

bool Device::disconnected() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return disconnectedLocked();
}

bool Device::disconnectedLocked() {
    // A disconnection with a duration ends when the device's clock reaches its end: the camera is
    // plugged back in.
    if (m_disconnected && m_reconnectAtS &&
        timeOfIndex(m_clock.currentIndex(m_steppedClock.load(), std::chrono::steady_clock::now())) >=
            *m_reconnectAtS) {
        m_disconnected = false;
        m_reconnectAtS.reset();
    }
    return m_disconnected;
}

} // namespace Kestrion::Simulator
