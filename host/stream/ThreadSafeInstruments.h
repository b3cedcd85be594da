#pragma once

#include "host/stream/ThreadSafeInstrumentsBase.h"

#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>

namespace Kestrion {

/// The instruments of a tracking stream, each with a special object of type T (the device's
/// record for it, e.g. a marker geometry), kept by id in id order and shared between the
/// acquisition thread and the user interface.
///
/// T provides clone() returning a deep copy (std::unique_ptr<T> or T*); specialObjects() uses it.
///
/// Every operation holds the registry's mutex for its whole run, updaters included: an updater
/// must not call back into the registry. Failures are logged at error level under the category
/// "ThreadSafeInstruments" and return no flags; nothing is thrown except std::system_error from a
/// failed lock (and whatever an updater throws).
///
/// The first instrument created becomes the main instrument. When the main instrument is removed,
/// the first remaining one (in id order) becomes main; without instruments there is none
/// (mainId() empty, mainIndex() -1).
///
/// prepareUpdate() and modify() run once per frame per instrument: they allocate nothing (the
/// copy that modify() compares against is a reused member, and updaters are called directly, not
/// through std::function).
template <class T>
class ThreadSafeInstruments : public ThreadSafeInstrumentsBase {
public:
    ThreadSafeInstruments() = default;
    ThreadSafeInstruments(const ThreadSafeInstruments&) = delete;
    ThreadSafeInstruments& operator=(const ThreadSafeInstruments&) = delete;

    /// Adds an instrument (identity pose, quality 0, timestamp 0, state 0) with its special
    /// object (may be null). Returns InstrumentsChanged, or no flags when the id exists already
    /// ("create: Instrument with ID <id> already exists"; the special object is dropped).
    InstrumentModifications create(const TrackerID& trackerId, std::unique_ptr<T> special, bool active) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_instruments.count(trackerId.id)) {
            logAlreadyExists(trackerId.id);
            return {};
        }
        m_instruments.emplace(trackerId.id, Entry{TrackingInstrument(trackerId, active), std::move(special)});
        if (m_instruments.size() == 1)
            setMainByIdImpl(trackerId.id, "setMainById");
        else
            updateMainIndex();
        return InstrumentModification::InstrumentsChanged;
    }

    /// Runs `updater` on the instrument `id` and its special object, with the registry locked, and
    /// returns what changed (checkInstrumentModification: an updater that changes the id is undone).
    /// The updater is called either as (const std::string& id, TrackingInstrument&, T&) or, if it
    /// takes only the special object, as (const std::string& id, T&) (then no flags are returned).
    /// An id without instrument or special object logs "modify: Special object for instrument
    /// with ID <id> does not exist".
    template <class Updater>
    InstrumentModifications modify(const std::string& id, Updater&& updater) {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_instruments.find(id);
        if (it == m_instruments.end() || !it->second.special) {
            logNoSpecialObject("modify", id);
            return {};
        }
        return apply(it->first, it->second, updater);
    }

    /// modify() for every instrument in id order; the flags of all of them combined. Instruments
    /// without special object are skipped with "modifyAll: Special object for instrument with ID
    /// <id> does not exist".
    template <class Updater>
    InstrumentModifications modifyAll(Updater&& updater) {
        std::lock_guard<std::mutex> lock(m_mutex);
        InstrumentModifications flags;
        for (auto& [id, entry] : m_instruments) {
            if (!entry.special) {
                logNoSpecialObject("modifyAll", id);
                continue;
            }
            flags |= apply(id, entry, updater);
        }
        return flags;
    }

    /// Deep copies (clone()) of the special objects, with their instrument ids, in id order;
    /// instruments without special object are left out.
    std::vector<std::pair<std::string, std::unique_ptr<T>>> specialObjects() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<std::pair<std::string, std::unique_ptr<T>>> result;
        result.reserve(m_instruments.size());
        for (const auto& [id, entry] : m_instruments)
            if (entry.special)
                result.emplace_back(id, std::unique_ptr<T>(cloneOf(*entry.special)));
        return result;
    }

    void setMain(unsigned int index) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (index >= m_instruments.size()) {
            logIndexTooLarge(index);
            return;
        }
        auto it = std::next(m_instruments.begin(), static_cast<std::ptrdiff_t>(index));
        m_mainId = it->first;
        m_mainIndex = static_cast<int>(index);
    }

    void setMainById(const std::string& id) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        setMainByIdImpl(id, "setMainById");
    }

    void setActive(const std::string& id, bool active) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_instruments.find(id);
        if (it == m_instruments.end()) {
            logNotFound("setActive", id);
            return;
        }
        it->second.instrument.active = active;
    }

    /// False (with "isActive: Instrument with ID <id> not found") for an unknown id.
    bool isActive(const std::string& id) const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_instruments.find(id);
        if (it == m_instruments.end()) {
            logNotFound("isActive", id);
            return false;
        }
        return it->second.instrument.active;
    }

    /// Deletes the instrument and its special object: InstrumentsChanged, or no flags with
    /// "remove: Instrument with ID <id> not found".
    InstrumentModifications remove(const std::string& id) override {
        std::unique_ptr<T> removed; // deleted after the lock is released
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_instruments.find(id);
        if (it == m_instruments.end()) {
            logNotFound("remove", id);
            return {};
        }
        removed = std::move(it->second.special);
        m_instruments.erase(it);
        if (id == m_mainId || m_instruments.empty()) {
            m_mainId = m_instruments.empty() ? std::string() : m_instruments.begin()->first;
        }
        updateMainIndex();
        return InstrumentModification::InstrumentsChanged;
    }

    /// Deletes every instrument: InstrumentsChanged when there was any.
    InstrumentModifications clear() override {
        std::map<std::string, Entry> removed;
        std::lock_guard<std::mutex> lock(m_mutex);
        removed.swap(m_instruments);
        m_mainId.clear();
        m_mainIndex = -1;
        return removed.empty() ? InstrumentModifications() : InstrumentModification::InstrumentsChanged;
    }

    /// Starts a frame: every instrument becomes untracked (identity, quality 0, state 0) with the
    /// frame's timestamp; id, name, model number and active flag stay. PoseChanged when any
    /// instrument changed.
    InstrumentModifications prepareUpdate(unsigned long long timestampMs) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        bool changed = false;
        for (auto& entry : m_instruments)
            changed |= resetForFrame(entry.second.instrument, timestampMs);
        return changed ? InstrumentModification::PoseChanged : InstrumentModifications();
    }

    /// Copies of the instruments in id order. The list is sized before the registry is locked, so
    /// that the acquisition thread does not wait for that allocation (once per frame).
    std::vector<TrackingInstrument> instruments() const override {
        std::vector<TrackingInstrument> result;
        for (;;) {
            result.reserve(size());
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_instruments.size() > result.capacity())
                continue; // grown meanwhile: size again
            for (const auto& entry : m_instruments)
                result.push_back(entry.second.instrument);
            return result;
        }
    }

    std::size_t size() const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_instruments.size();
    }

    std::optional<TrackingInstrument> find(const std::string& id) const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_instruments.find(id);
        if (it == m_instruments.end())
            return std::nullopt;
        return it->second.instrument;
    }

    std::optional<TrackingInstrument> mainInstrument() const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_instruments.find(m_mainId);
        if (m_mainId.empty() || it == m_instruments.end())
            return std::nullopt;
        return it->second.instrument;
    }

    std::string mainId() const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_mainId;
    }

    int mainIndex() const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_mainIndex;
    }

    std::string mainName() const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_instruments.find(m_mainId);
        return it == m_instruments.end() ? std::string() : it->second.instrument.id.name;
    }

private:
    struct Entry {
        TrackingInstrument instrument;
        std::unique_ptr<T> special;
    };

    template <class Updater>
    InstrumentModifications apply(const std::string& id, Entry& entry, Updater& updater) {
        if constexpr (std::is_invocable_v<Updater&, const std::string&, TrackingInstrument&, T&>) {
            m_before = entry.instrument; // assignment into the reused copy keeps its string buffers
            updater(id, entry.instrument, *entry.special);
            return checkInstrumentModification(entry.instrument, m_before);
        } else {
            static_assert(std::is_invocable_v<Updater&, const std::string&, T&>,
                          "an updater takes (id, TrackingInstrument&, T&) or (id, T&)");
            updater(id, *entry.special); // cannot touch the instrument: nothing to compare
            return {};
        }
    }

    bool setMainByIdImpl(const std::string& id, const char* operation) {
        auto it = m_instruments.find(id);
        if (it == m_instruments.end()) {
            logNotFound(operation, id);
            return false;
        }
        m_mainId = id;
        m_mainIndex = static_cast<int>(std::distance(m_instruments.begin(), it));
        return true;
    }

    // Instruments are kept in id order, so an insertion or removal can move the main instrument.
    void updateMainIndex() {
        auto it = m_instruments.find(m_mainId);
        m_mainIndex = (m_mainId.empty() || it == m_instruments.end())
                          ? -1
                          : static_cast<int>(std::distance(m_instruments.begin(), it));
    }

    template <class U>
    static T* cloneOf(const U& special) {
        auto copy = special.clone();
        if constexpr (std::is_pointer_v<decltype(copy)>)
            return copy;
        else
            return copy.release();
    }

    // One lock for everything below: the acquisition thread and the user interface both call in,
    // and every operation reads or writes several of these together.
    mutable std::mutex m_mutex;
    std::map<std::string, Entry> m_instruments;
    std::string m_mainId;
    int m_mainIndex = -1;
    TrackingInstrument m_before;
};

} // namespace Kestrion
