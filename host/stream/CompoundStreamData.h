#pragma once

#include "host/stream/StreamData.h"

#include <memory>
#include <vector>

namespace Kestrion {

/// Data items that belong together (a tracking frame and the camera images of the same frame): a
/// main item, emitted on the main stream, and sub items, each of which names the substream it
/// belongs to (StreamData::stream()). Its stream and timestamps are those of the main item.
class CompoundStreamData : public StreamData {
public:
    CompoundStreamData(std::shared_ptr<const StreamData> main,
                       std::vector<std::shared_ptr<const StreamData>> subData);

    const std::shared_ptr<const StreamData>& mainData() const { return m_main; }
    const std::vector<std::shared_ptr<const StreamData>>& subData() const { return m_subData; }

private:
    std::shared_ptr<const StreamData> m_main;
    std::vector<std::shared_ptr<const StreamData>> m_subData;
};

/// The first item of type T in `data`: the item itself, else (for a compound) its main item, else
/// its sub items in order, looking into nested compounds the same way. Null when there is none.
template <class T>
std::shared_ptr<const T> findStreamData(const std::shared_ptr<const StreamData>& data) {
    if (!data)
        return nullptr;
    if (auto typed = std::dynamic_pointer_cast<const T>(data))
        return typed;
    if (auto compound = std::dynamic_pointer_cast<const CompoundStreamData>(data)) {
        if (auto found = findStreamData<T>(compound->mainData()))
            return found;
        for (const auto& sub : compound->subData())
            if (auto found = findStreamData<T>(sub))
                return found;
    }
    return nullptr;
}

} // namespace Kestrion
