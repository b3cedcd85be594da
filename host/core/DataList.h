#pragma once

#include "host/core/Data.h"

#include <initializer_list>
#include <memory>
#include <vector>

namespace Kestrion {

/// An ordered list of data items: the input of an algorithm and what factories check an
/// algorithm's compatibility against. Null items are not kept.
class DataList {
public:
    using Items = std::vector<std::shared_ptr<Data>>;

    DataList() = default;
    DataList(std::initializer_list<std::shared_ptr<Data>> items);

    void add(std::shared_ptr<Data> item);
    void clear() { m_items.clear(); }
    bool empty() const { return m_items.empty(); }
    std::size_t size() const { return m_items.size(); }
    const std::shared_ptr<Data>& operator[](std::size_t index) const { return m_items[index]; }
    Items::const_iterator begin() const { return m_items.begin(); }
    Items::const_iterator end() const { return m_items.end(); }

    /// The items of type T (or derived from it), in order.
    template <class T>
    std::vector<std::shared_ptr<T>> getAll() const {
        std::vector<std::shared_ptr<T>> result;
        for (const auto& item : m_items)
            if (auto typed = std::dynamic_pointer_cast<T>(item))
                result.push_back(std::move(typed));
        return result;
    }
    /// The first item of type T, or null.
    template <class T>
    std::shared_ptr<T> getFirst() const {
        for (const auto& item : m_items)
            if (auto typed = std::dynamic_pointer_cast<T>(item))
                return typed;
        return nullptr;
    }

private:
    Items m_items;
};

} // namespace Kestrion
