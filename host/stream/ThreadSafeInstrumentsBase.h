#pragma once

#include "host/stream/InstrumentModification.h"
#include "host/stream/TrackingInstrument.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Kestrion {

/// The part of the instrument registry that does not depend on the per-instrument special object:
/// the modification check, the messages (category "ThreadSafeInstruments", error level) and the
/// interface of the operations that need no special object, so that code can use any registry.
class ThreadSafeInstrumentsBase {
public:
    static constexpr const char* LogCategory = "ThreadSafeInstruments";

    virtual ~ThreadSafeInstrumentsBase();

    /// Compares an instrument after an update with its state before:
    /// - a changed id is not allowed: logs "ID must not be modified. TrackingInstrument is reset to
    ///   state before modification", copies `before` back into `modified` and returns no flags;
    /// - InstrumentsChanged when the name or the model number changed;
    /// - PoseChanged when the timestamp, a matrix entry, the quality or the state field changed.
    /// Values are compared exactly (a NaN counts as changed).
    static InstrumentModifications checkInstrumentModification(TrackingInstrument& modified,
                                                               const TrackingInstrument& before);

    virtual void setMain(unsigned int index) = 0;
    virtual void setMainById(const std::string& id) = 0;
    virtual void setActive(const std::string& id, bool active) = 0;
    virtual bool isActive(const std::string& id) const = 0;
    virtual InstrumentModifications remove(const std::string& id) = 0;
    virtual InstrumentModifications clear() = 0;
    virtual InstrumentModifications prepareUpdate(unsigned long long timestampMs) = 0;

    virtual std::vector<TrackingInstrument> instruments() const = 0;
    virtual std::size_t size() const = 0;
    virtual std::optional<TrackingInstrument> find(const std::string& id) const = 0;
    virtual std::optional<TrackingInstrument> mainInstrument() const = 0;
    virtual std::string mainId() const = 0;
    virtual int mainIndex() const = 0;
    virtual std::string mainName() const = 0;

protected:
    /// "<operation>: Instrument with ID <id> not found"
    static void logNotFound(const char* operation, const std::string& id);
    /// "<operation>: Special object for instrument with ID <id> does not exist"
    static void logNoSpecialObject(const char* operation, const std::string& id);
    /// "create: Instrument with ID <id> already exists"
    static void logAlreadyExists(const std::string& id);
    /// "Index <index> exceeds size of instruments"
    static void logIndexTooLarge(unsigned int index);

    /// Puts an instrument into the untracked state of a new frame (identity, quality 0, state 0,
    /// the frame's timestamp); true when that changed anything.
    static bool resetForFrame(TrackingInstrument& instrument, std::uint64_t timestampMs);
};

} // namespace Kestrion
