#include "simulator/src/Device.h"

#include "simulator/src/ErrorCodes.h"
#include "simulator/src/LiveFrameSource.h"
#include "simulator/src/OptionCatalog.h"
#include "simulator/src/PreciseWakeUp.h"

#include <algorithm>
#include <chrono>
#include <cmath>
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
    : Device(description, scene,
             std::make_unique<LiveFrameSource>(description.model, scene, description.serial,
                                               steppedClock.load()),
             steppedClock) {}

Device::Device(const DeviceDescription& description, std::shared_ptr<const SceneDescription> scene,
               std::unique_ptr<FrameSource> source, const std::atomic<bool>& steppedClock)
    : m_serial(description.serial)
    , m_model(description.model)
    , m_scene(std::move(scene))
    , m_steppedClock(steppedClock)
    , m_options(OptionCatalog::deviceOptions(description.model))
    , m_source(std::move(source))
    , m_rematch(m_source->rematchesMarkers()) {
    for (const OptionDefinition& extra : description.extraOptions) {
        m_options.add(extra);
    }
    if (m_source->replays()) {
        m_options.add(OptionCatalog::replayEnded());
    }
    for (const FaultRule& fault : description.faults) {
        m_faults.add(fault);
    }
}

Device::~Device() = default;

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

template <typename Call>
ftkError Device::optionCall(std::uint32_t id, bool set, ftkOptionGetter what, std::string& message,
                            Call call) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ftkError status = optionGate(id, set, what, message);
    if (status == ftkError::FTK_OK) {
        status = call();
        if (status != ftkError::FTK_OK) {
            message = optionFailure(status, id, m_options.find(id), ErrorCodes::serialText(m_serial));
        }
    }
    return status;
}

ftkError Device::getInt(std::uint32_t id, ftkOptionGetter what, std::int32_t& out, std::string& message) {
    return optionCall(id, false, what, message, [&] { return m_options.getInt(id, what, out); });
}

ftkError Device::getFloat(std::uint32_t id, ftkOptionGetter what, float& out, std::string& message) {
    return optionCall(id, false, what, message, [&] { return m_options.getFloat(id, what, out); });
}

ftkError Device::getData(std::uint32_t id, ftkBuffer& out, std::string& message) {
    return optionCall(id, false, ftkOptionGetter::FTK_VALUE, message,
                      [&] { return m_options.getData(id, out); });
}

ftkError Device::setInt(std::uint32_t id, std::int32_t value, std::string& message) {
    return optionCall(id, true, ftkOptionGetter::FTK_VALUE, message, [&] {
        const ftkError status = m_options.setInt(id, value);
        if (static_cast<int>(status) <= 0) {
            mirrorProcessingOptions(id);
        }
        return status;
    });
}

ftkError Device::setFloat(std::uint32_t id, float value, std::string& message) {
    return optionCall(id, true, ftkOptionGetter::FTK_VALUE, message,
                      [&] { return m_options.setFloat(id, value); });
}

ftkError Device::setData(std::uint32_t id, const ftkBuffer& value, std::string& message) {
    return optionCall(id, true, ftkOptionGetter::FTK_VALUE, message,
                      [&] { return m_options.setData(id, value); });
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
    if (disconnectedLocked()) {
        message = "Device " + ErrorCodes::serialText(m_serial) + " is disconnected";
        return ftkError::FTK_ERR_DISCONNECTION;
    }
    ++m_fetches;
    const auto now = std::chrono::steady_clock::now();
    const bool stepped = m_steppedClock.load();
    const FaultScript::FetchOutcome outcome = m_faults.onFetch(m_fetches, currentTimeLocked(stepped));
    if (stepped && (outcome.disconnect || outcome.error != ftkError::FTK_OK)) {
        // With the stepped clock each fetch is one frame period: a failed one loses its frame.
        m_source->takeNext(true, now);
    }
    if (outcome.disconnect) {
        m_disconnected = true;
        m_reconnectAtS = outcome.reconnectAtS;
        message = "Device " + ErrorCodes::serialText(m_serial) + " was disconnected";
        return ftkError::FTK_ERR_DISCONNECTION;
    }
    if (outcome.error != ftkError::FTK_OK) {
        const char* name = ErrorCodes::name(outcome.error);
        message = "Frame acquisition on device " + ErrorCodes::serialText(m_serial) + " failed with " +
                  (name ? name : "an error") + " (simulated fault)";
        return outcome.error;
    }
    faults = outcome.delivery;
    ftkError result = ftkError::FTK_OK;
    const std::uint64_t newest = stepped ? 0 : m_source->currentIndex(false, now);
    if (stepped) {
        index = m_source->takeNext(true, now);
        result = deliverLocked(index, now, message);
    } else if (!hasLast || newest > lastIndex) {
        index = newest;
        result = deliverLocked(index, now, message);
    } else {
        result = waitLocked(lock, lastIndex, now + std::chrono::milliseconds(timeoutMS), timeoutMS, index,
                            message);
    }
    // A fetch that brought no frame marked none: its delivery faults are for the next frames.
    if (result == ftkError::FTK_WAR_NO_FRAME)
        m_faults.onEmptyFetch(outcome);
    return result;
}

ftkError Device::waitLocked(std::unique_lock<std::mutex>& lock, std::uint64_t lastIndex,
                            std::chrono::steady_clock::time_point deadline, std::uint32_t timeoutMS,
                            std::uint64_t& index, std::string& message) {
    const PreciseWakeUp precise;
    for (;;) {
        // The wait releases the lock, so options and geometries stay usable meanwhile; it wakes
        // when the next frame arrives, at the deadline, or when the clock or the faults change.
        // Shortly before the frame arrives it wakes once to make the frame, as a camera computes
        // a frame before sending it: the fetch then returns as the frame arrives.
        const std::optional<std::chrono::steady_clock::time_point> next = m_source->arrival(lastIndex + 1);
        auto wakeAt = next ? std::min(*next, deadline) : deadline;
        if (next && m_preparedIndex != lastIndex + 1) {
            if (std::chrono::steady_clock::now() >= *next - PrepareAhead) {
                prepareLocked(lastIndex + 1);
            } else {
                wakeAt = std::min(wakeAt, *next - PrepareAhead);
            }
        }
        if (next && wakeAt == *next) {
            waitForArrivalLocked(lock, *next);
        } else {
            m_wake.wait_until(lock, wakeAt);
        }
        const auto now = std::chrono::steady_clock::now();
        if (disconnectedLocked()) {
            message = "Device " + ErrorCodes::serialText(m_serial) + " is disconnected";
            return ftkError::FTK_ERR_DISCONNECTION;
        }
        const bool stepped = m_steppedClock.load();
        const FaultScript::FetchOutcome outcome = m_faults.onWait(currentTimeLocked(stepped));
        if (outcome.disconnect) {
            // Unplugged while the fetch waited: it sees it at once, as with a camera.
            m_disconnected = true;
            m_reconnectAtS = outcome.reconnectAtS;
            message = "Device " + ErrorCodes::serialText(m_serial) + " was disconnected";
            return ftkError::FTK_ERR_DISCONNECTION;
        }
        if (stepped) {
            index = m_source->takeNext(true, now);
            return deliverLocked(index, now, message);
        }
        const std::uint64_t newest = m_source->currentIndex(false, now);
        if (newest > lastIndex) {
            index = newest;
            return deliverLocked(index, now, message);
        }
        if (now >= deadline) {
            // A replay that has ended waits like a camera that sends nothing more.
            if (!m_source->pastEnd(lastIndex + 1, message)) {
                message = "No new frame from device " + ErrorCodes::serialText(m_serial) + " within " +
                          std::to_string(timeoutMS) + " ms";
            }
            return ftkError::FTK_WAR_NO_FRAME;
        }
    }
}

ftkError Device::deliverLocked(std::uint64_t index, std::chrono::steady_clock::time_point now,
                               std::string& message) {
    if (m_source->pastEnd(index, message)) {
        return ftkError::FTK_WAR_NO_FRAME;
    }
    m_source->delivering(index, now);
    return ftkError::FTK_OK;
}

void Device::waitForArrivalLocked(std::unique_lock<std::mutex>& lock,
                                  std::chrono::steady_clock::time_point arrival) {
    // A timed wait ends tens of µs late on a busy or virtual machine; a camera's frame wakes the
    // fetch through an interrupt. The last stretch is therefore spent yielding the processor,
    // without the lock, so that the fetch returns as the frame arrives. The caller looks at the
    // device's state again afterwards (faults, connection, clock mode).
    const auto spinFrom = arrival - SpinAhead;
    if (std::chrono::steady_clock::now() < spinFrom) {
        m_wake.wait_until(lock, spinFrom);
        return;
    }
    lock.unlock();
    while (std::chrono::steady_clock::now() < arrival) {
        std::this_thread::yield();
    }
    lock.lock();
}

void Device::prepareLocked(std::uint64_t index) {
    // A frame that cannot be made now is made again, with its error, when it is delivered.
    std::string ignored;
    produceLocked(index, ignored);
    m_preparedIndex = index;
}

bool Device::produceLocked(std::uint64_t index, std::string& message) {
    m_frameValid = m_source->produce(index, settingsLocked(), m_frame, m_truth, message);
    m_frame.index = index;
    return m_frameValid;
}

double Device::currentTimeLocked(bool next) {
    const bool stepped = m_steppedClock.load();
    const std::uint64_t current = m_source->currentIndex(stepped, std::chrono::steady_clock::now());
    return m_source->timeS(next ? current + 1 : current);
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

ftkError Device::frameLocked(std::uint64_t index, bool wantImages, const FrameData*& frame, bool& withImages,
                             std::string& message) {
    if ((!m_frameValid || m_frame.index != index) && !produceLocked(index, message)) {
        return ftkError::FTK_ERR_READ;
    }
    const bool imagesEnabled = !m_model.usb || m_options.intValue(OptionCatalog::SendImages) == 1;
    withImages = wantImages && imagesEnabled && (!m_frame.replayed || m_frame.hasImages);
    if (!m_delivered || index > m_lastDelivered) {
        if (m_delivered && index > m_lastDelivered + 1) {
            m_lostFrames += index - m_lastDelivered - 1;
            m_options.forceInt(OptionCatalog::LostFrames,
                               static_cast<std::int32_t>(std::min<std::uint64_t>(
                                   m_lostFrames, std::numeric_limits<std::int32_t>::max())));
        }
        m_delivered = true;
        m_lastDelivered = index;
        if (m_source->replays() && m_source->isLast(index)) {
            m_options.forceInt(OptionCatalog::ReplayEnded, 1);
        }
    }
    frame = &m_frame;
    return ftkError::FTK_OK;
}

void Device::drawImagesLocked(SensorImage& left, SensorImage& right) {
    m_source->drawImages(settingsLocked(), left, right);
}

void Device::addFault(const FaultRule& fault) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_faults.add(fault);
    m_wake.notify_all();
}

void Device::clearFaults() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_faults.clear();
    m_wake.notify_all();
}

void Device::skipFrames(std::uint64_t frames) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_source->skip(m_steppedClock.load(), std::chrono::steady_clock::now(), frames);
    m_wake.notify_all();
}

void Device::clockChanged() {
    // Notified under the mutex: a fetch between reading the clock's mode and waiting holds it,
    // so it cannot miss this wake-up.
    std::lock_guard<std::mutex> lock(m_mutex);
    m_wake.notify_all();
}

bool Device::exposureTime(std::uint64_t index, std::int64_t& exposureUS) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_source->exposureTime(index, exposureUS);
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
    if (m_disconnected && m_reconnectAtS && currentTimeLocked(false) >= *m_reconnectAtS) {
        m_disconnected = false;
        m_reconnectAtS.reset();
    }
    return m_disconnected;
}

} // namespace Kestrion::Simulator
