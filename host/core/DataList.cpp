#include "host/core/DataList.h"

namespace Kestrion {

DataList::DataList(std::initializer_list<std::shared_ptr<Data>> items) {
    for (const auto& item : items)
        add(item);
}

void DataList::add(std::shared_ptr<Data> item) {
    if (item)
        m_items.push_back(std::move(item));
}

} // namespace Kestrion
