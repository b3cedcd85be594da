#include "host/stream/StreamGroupBase.h"

#include "host/core/Log.h"
#include "host/stream/CompoundStreamData.h"
#include "host/stream/Stream.h"
#include "host/stream/SubstreamBase.h"

namespace Kestrion {

namespace {
const char* const Category = "StreamGroup";
}

StreamGroupBase::StreamGroupBase()
    : m_substreams(std::make_shared<const Substreams>()) {}

StreamGroupBase::~StreamGroupBase() = default;

bool StreamGroupBase::addSubstream(std::shared_ptr<SubstreamBase> substream) {
    if (!substream) {
        KESTRION_LOG_ERROR(Category, "addSubstream: null substream");
        return false;
    }
    if (&substream->mainStream() != proxyStream()) {
        KESTRION_LOG_ERROR(Category, "addSubstream: substream '" << substream->stream().name()
                                                                 << "' belongs to another stream");
        return false;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    const int index = substream->substreamIndex();
    if (m_substreams->count(index)) {
        KESTRION_LOG_ERROR(Category, "addSubstream: substream index " << index << " already exists");
        return false;
    }
    auto next = std::make_shared<Substreams>(*m_substreams);
    next->emplace(index, std::move(substream));
    m_substreams = std::move(next);
    return true;
}

bool StreamGroupBase::removeSubstream(int index) {
    std::shared_ptr<const Substreams> previous; // the removed substream dies outside the lock
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_substreams->count(index))
        return false;
    auto next = std::make_shared<Substreams>(*m_substreams);
    next->erase(index);
    previous = std::move(m_substreams);
    m_substreams = std::move(next);
    return true;
}

void StreamGroupBase::removeAllSubstreams() {
    std::shared_ptr<const Substreams> previous;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        previous = std::move(m_substreams);
        m_substreams = std::make_shared<const Substreams>();
    }
}

std::vector<std::shared_ptr<SubstreamBase>> StreamGroupBase::substreams() const {
    std::shared_ptr<const Substreams> current;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        current = m_substreams;
    }
    std::vector<std::shared_ptr<SubstreamBase>> result;
    result.reserve(current->size());
    for (const auto& entry : *current)
        result.push_back(entry.second);
    return result;
}

std::vector<Stream*> StreamGroupBase::children() const {
    std::vector<Stream*> result;
    for (const auto& substream : substreams())
        result.push_back(&substream->stream());
    return result;
}

std::shared_ptr<SubstreamBase> StreamGroupBase::substream(int index) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_substreams->find(index);
    return it == m_substreams->end() ? nullptr : it->second;
}

std::shared_ptr<SubstreamBase> StreamGroupBase::substream(const std::string& name) const {
    for (const auto& s : substreams())
        if (s->stream().name() == name)
            return s;
    return nullptr;
}

std::size_t StreamGroupBase::numSubstreams() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_substreams->size();
}

void StreamGroupBase::emitMainAndSubSignals(const std::shared_ptr<CompoundStreamData>& data,
                                            bool emitSubstreamData) {
    if (!data)
        return;
    std::shared_ptr<const Substreams> current;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        current = m_substreams;
    }
    // Like Stream::emitStreamData: each data item is noted in the stream's health as it goes out.
    proxyStream()->health().noteData();
    proxyStream()->signalStreamData.emitSignal(data);
    if (!emitSubstreamData)
        return;
    for (const auto& item : data->subData()) {
        if (!item)
            continue;
        for (const auto& entry : *current) {
            Stream& substream = entry.second->stream();
            if (&substream == item->stream()) {
                substream.health().noteData();
                substream.signalStreamData.emitSignal(item);
                break;
            }
        }
    }
}

} // namespace Kestrion
