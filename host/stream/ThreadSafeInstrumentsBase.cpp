#include "host/stream/ThreadSafeInstrumentsBase.h"

#include "host/core/Log.h"

namespace Kestrion {

ThreadSafeInstrumentsBase::~ThreadSafeInstrumentsBase() = default;

InstrumentModifications
ThreadSafeInstrumentsBase::checkInstrumentModification(TrackingInstrument& modified,
                                                       const TrackingInstrument& before) {
    if (modified.id.id != before.id.id) {
        KESTRION_LOG_ERROR(
            LogCategory, "ID must not be modified. TrackingInstrument is reset to state before modification");
        modified = before;
        return {};
    }
    InstrumentModifications flags;
    if (modified.id.name != before.id.name || modified.id.modelNumber != before.id.modelNumber)
        flags |= InstrumentModification::InstrumentsChanged;
    if (modified.timestamp != before.timestamp || modified.matrix != before.matrix ||
        modified.quality != before.quality || modified.state != before.state)
        flags |= InstrumentModification::PoseChanged;
    return flags;
}

void ThreadSafeInstrumentsBase::logNotFound(const char* operation, const std::string& id) {
    KESTRION_LOG_ERROR(LogCategory, operation << ": Instrument with ID " << id << " not found");
}

void ThreadSafeInstrumentsBase::logNoSpecialObject(const char* operation, const std::string& id) {
    KESTRION_LOG_ERROR(LogCategory,
                       operation << ": Special object for instrument with ID " << id << " does not exist");
}

void ThreadSafeInstrumentsBase::logAlreadyExists(const std::string& id) {
    KESTRION_LOG_ERROR(LogCategory, "create: Instrument with ID " << id << " already exists");
}

void ThreadSafeInstrumentsBase::logIndexTooLarge(unsigned int index) {
    KESTRION_LOG_ERROR(LogCategory, "Index " << index << " exceeds size of instruments");
}

bool ThreadSafeInstrumentsBase::resetForFrame(TrackingInstrument& instrument, std::uint64_t timestampMs) {
    const bool changed = instrument.timestamp != timestampMs || instrument.quality != 0.0 ||
                         instrument.state != 0 || instrument.matrix != Eigen::Matrix4d::Identity();
    instrument.matrix.setIdentity();
    instrument.quality = 0.0;
    instrument.state = 0;
    instrument.timestamp = timestampMs;
    return changed;
}

} // namespace Kestrion
