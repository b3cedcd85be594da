#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Kestrion {

class CompoundStreamData;
class Stream;
class SubstreamBase;

/// A stream that offers parts of its data as substreams (a tracking camera offering its left and
/// right images). The group owns its substreams by index; each has a name (its stream name).
/// Substreams can be added and removed from any thread, also while the main stream emits: an
/// emission works on the substreams present when it began, which stay alive until it ends.
/// The main stream is proxyStream(); StreamGroup<T> provides it.
class StreamGroupBase {
public:
    StreamGroupBase();
    virtual ~StreamGroupBase();
    StreamGroupBase(const StreamGroupBase&) = delete;
    StreamGroupBase& operator=(const StreamGroupBase&) = delete;

    /// The stream that stands for the whole group (the main stream).
    virtual Stream* proxyStream() = 0;

    /// Adds a substream at its index. Refused, with an error (category "StreamGroup"), for null,
    /// for a substream of another main stream and for an index already taken.
    bool addSubstream(std::shared_ptr<SubstreamBase> substream);
    /// Removes the substream at that index; false when there is none.
    bool removeSubstream(int index);
    void removeAllSubstreams();

    /// The substreams ordered by index.
    std::vector<std::shared_ptr<SubstreamBase>> substreams() const;
    /// The substreams as streams, ordered by index.
    std::vector<Stream*> children() const;
    std::shared_ptr<SubstreamBase> substream(int index) const;
    /// The first substream with that name, or null.
    std::shared_ptr<SubstreamBase> substream(const std::string& name) const;
    std::size_t numSubstreams() const;

    /// Emits `data` on the main stream's data signal and then, when emitSubstreamData is true, each
    /// of its sub items on the data signal of the substream it names (items naming no current
    /// substream are skipped). Everything is emitted on the calling thread, with no lock held.
    void emitMainAndSubSignals(const std::shared_ptr<CompoundStreamData>& data, bool emitSubstreamData);

private:
    using Substreams = std::map<int, std::shared_ptr<SubstreamBase>>;

    // Guards the pointer to the current map; the map itself is never changed once published (copy
    // on write), so an emission takes it without copying and without holding the lock.
    mutable std::mutex m_mutex;
    std::shared_ptr<const Substreams> m_substreams;
};

} // namespace Kestrion
