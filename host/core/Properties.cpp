#include "host/core/Properties.h"

#include "host/core/Log.h"
#include "host/core/Path.h"

#include <algorithm>

namespace Kestrion {

namespace {

const char* const category = "Properties";

bool isPlainWord(const std::string& text) {
    if (text.empty())
        return false;
    const auto ok = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
               c == '-' || c == '.';
    };
    const char first = text.front();
    const bool firstOk = (first >= 'a' && first <= 'z') || (first >= 'A' && first <= 'Z') || first == '_';
    return firstOk && std::all_of(text.begin(), text.end(), ok);
}

bool checkAttributeName(const std::string& attribute, bool isParamAttribute) {
    const bool reserved = attribute == "name" || (isParamAttribute && attribute == "type");
    if (reserved || !isPlainWord(attribute)) {
        KESTRION_LOG_WARN(category, "Attribute name '" << attribute << "' is "
                                                       << (reserved ? "reserved" : "not a plain word"));
        return false;
    }
    return true;
}

void setInList(Properties::Attributes& list, const std::string& key, const std::string& value) {
    for (auto& entry : list)
        if (entry.first == key) {
            entry.second = value;
            return;
        }
    list.emplace_back(key, value);
}

std::optional<std::string> findInList(const Properties::Attributes& list, const std::string& key) {
    for (const auto& entry : list)
        if (entry.first == key)
            return entry.second;
    return std::nullopt;
}

} // namespace

bool Properties::Param::operator==(const Param& other) const {
    return name == other.name && type == other.type && text == other.text && attributes == other.attributes;
}

Properties::Properties(std::string name)
    : m_name(std::move(name)) {}

Properties::Properties(const Properties& other) {
    copyContentFrom(other);
    m_baseFolder = other.baseFolder();
}

Properties& Properties::operator=(const Properties& other) {
    if (this != &other) {
        // Copy first: other may be one of this block's own descendants.
        Properties copy(other);
        takeContentFrom(copy);
        m_baseFolder = copy.m_baseFolder;
    }
    return *this;
}

Properties::Properties(Properties&& other) noexcept {
    m_baseFolder = other.baseFolder();
    takeContentFrom(other);
}

Properties& Properties::operator=(Properties&& other) noexcept {
    if (this != &other) {
        // Through a temporary: other may be one of this block's own descendants, which taking
        // over its content would destroy half-way.
        Properties moved(std::move(other));
        m_baseFolder = moved.m_baseFolder;
        takeContentFrom(moved);
    }
    return *this;
}

Properties::~Properties() = default;

std::unique_ptr<Properties> Properties::clone() const {
    return std::make_unique<Properties>(*this);
}

void Properties::copyContentFrom(const Properties& other) {
    m_name = other.m_name;
    m_params = other.m_params;
    m_attributes = other.m_attributes;
    m_children.clear();
    m_children.reserve(other.m_children.size());
    for (const auto& child : other.m_children) {
        auto copy = std::make_unique<Properties>();
        copy->copyContentFrom(*child);
        copy->m_baseFolder = child->m_baseFolder;
        copy->m_parent = this;
        m_children.push_back(std::move(copy));
    }
}

void Properties::takeContentFrom(Properties& other) {
    m_name = std::move(other.m_name);
    m_params = std::move(other.m_params);
    m_attributes = std::move(other.m_attributes);
    m_children = std::move(other.m_children);
    for (auto& child : m_children)
        child->m_parent = this;
    other.m_name.clear();
    other.m_params.clear();
    other.m_attributes.clear();
    other.m_children.clear();
}

// Parameters ------------------------------------------------------------------------------

Properties::Param* Properties::findParam(const std::string& name) {
    for (auto& param : m_params)
        if (param.name == name)
            return &param;
    return nullptr;
}

const Properties::Param* Properties::findParam(const std::string& name) const {
    return const_cast<Properties*>(this)->findParam(name);
}

const std::string* Properties::findText(const std::string& name) const {
    const Param* param = findParam(name);
    return param ? &param->text : nullptr;
}

void Properties::setParam(const std::string& name, const char* value) {
    setParam(name, std::string(value ? value : ""));
}

bool Properties::removeParam(const std::string& name) {
    const auto it =
        std::find_if(m_params.begin(), m_params.end(), [&](const Param& p) { return p.name == name; });
    if (it == m_params.end())
        return false;
    m_params.erase(it);
    return true;
}

std::vector<std::string> Properties::paramNames() const {
    std::vector<std::string> names;
    names.reserve(m_params.size());
    for (const auto& param : m_params)
        names.push_back(param.name);
    return names;
}

std::optional<std::string> Properties::paramText(const std::string& name) const {
    if (const std::string* text = findText(name))
        return *text;
    return std::nullopt;
}

std::string Properties::paramType(const std::string& name) const {
    const Param* param = findParam(name);
    return param ? param->type : std::string();
}

bool Properties::setParamText(const std::string& name, const std::string& text, const std::string& type) {
    if (!PropertyTextDetail::isValid(type, text))
        return false;
    if (Param* param = findParam(name)) {
        param->text = text;
        param->type = type;
    } else {
        m_params.push_back(Param{name, type, text, {}});
    }
    return true;
}

bool Properties::setParamFromText(const std::string& name, const std::string& text) {
    const Param* param = findParam(name);
    return setParamText(name, text, param ? param->type : std::string("string"));
}

bool Properties::setParamAttribute(const std::string& name, const std::string& attribute,
                                   const std::string& value) {
    Param* param = findParam(name);
    if (!param) {
        KESTRION_LOG_WARN(category, "Cannot set attribute '" << attribute << "' of the absent parameter '"
                                                             << name << "'");
        return false;
    }
    if (!checkAttributeName(attribute, true))
        return false;
    setInList(param->attributes, attribute, value);
    return true;
}

std::optional<std::string> Properties::paramAttribute(const std::string& name,
                                                      const std::string& attribute) const {
    const Param* param = findParam(name);
    return param ? findInList(param->attributes, attribute) : std::nullopt;
}

Properties::Attributes Properties::paramAttributes(const std::string& name) const {
    const Param* param = findParam(name);
    return param ? param->attributes : Attributes();
}

bool Properties::removeParamAttribute(const std::string& name, const std::string& attribute) {
    Param* param = findParam(name);
    if (!param)
        return false;
    auto& list = param->attributes;
    const auto it =
        std::find_if(list.begin(), list.end(), [&](const auto& e) { return e.first == attribute; });
    if (it == list.end())
        return false;
    list.erase(it);
    return true;
}

// Block attributes ------------------------------------------------------------------------

bool Properties::setAttribute(const std::string& attribute, const std::string& value) {
    if (!checkAttributeName(attribute, false))
        return false;
    setInList(m_attributes, attribute, value);
    return true;
}

std::optional<std::string> Properties::attribute(const std::string& attribute) const {
    return findInList(m_attributes, attribute);
}

// Sub-properties --------------------------------------------------------------------------

Properties* Properties::addSubProperties(const std::string& name) {
    m_children.push_back(std::make_unique<Properties>(name));
    m_children.back()->m_parent = this;
    return m_children.back().get();
}

Properties* Properties::addSubProperties(const Properties& block) {
    auto copy = std::make_unique<Properties>(block);
    // The copy resolves paths as the original did, unless that is what it inherits here anyway.
    if (copy->m_baseFolder == baseFolder())
        copy->m_baseFolder.clear();
    copy->m_parent = this;
    m_children.push_back(std::move(copy));
    return m_children.back().get();
}

Properties* Properties::subProperty(const std::string& name) {
    for (auto& child : m_children)
        if (child->m_name == name)
            return child.get();
    return nullptr;
}

const Properties* Properties::subProperty(const std::string& name) const {
    return const_cast<Properties*>(this)->subProperty(name);
}

std::vector<Properties*> Properties::subProperties() {
    std::vector<Properties*> result;
    result.reserve(m_children.size());
    for (auto& child : m_children)
        result.push_back(child.get());
    return result;
}

std::vector<const Properties*> Properties::subProperties() const {
    std::vector<const Properties*> result;
    result.reserve(m_children.size());
    for (const auto& child : m_children)
        result.push_back(child.get());
    return result;
}

bool Properties::removeSubProperties(const std::string& name) {
    const auto before = m_children.size();
    m_children.erase(std::remove_if(m_children.begin(), m_children.end(),
                                    [&](const std::unique_ptr<Properties>& c) { return c->m_name == name; }),
                     m_children.end());
    return m_children.size() != before;
}

bool Properties::removeSubProperties(const Properties* block) {
    const auto it = std::find_if(m_children.begin(), m_children.end(),
                                 [&](const std::unique_ptr<Properties>& c) { return c.get() == block; });
    if (it == m_children.end())
        return false;
    m_children.erase(it);
    return true;
}

bool Properties::empty() const {
    return m_params.empty() && m_attributes.empty() && m_children.empty();
}

void Properties::clear() {
    m_params.clear();
    m_attributes.clear();
    m_children.clear();
}

bool Properties::operator==(const Properties& other) const {
    if (m_name != other.m_name || m_params != other.m_params || m_attributes != other.m_attributes ||
        m_children.size() != other.m_children.size())
        return false;
    for (std::size_t i = 0; i < m_children.size(); ++i)
        if (*m_children[i] != *other.m_children[i])
            return false;
    return true;
}

// Paths -----------------------------------------------------------------------------------

std::string Properties::baseFolder() const {
    for (const Properties* block = this; block; block = block->m_parent)
        if (!block->m_baseFolder.empty())
            return block->m_baseFolder;
    return std::string();
}

void Properties::setBaseFolder(const std::string& folder) {
    m_baseFolder = folder;
}

std::string Properties::absolutePath(const std::string& path) const {
    const Filesystem::Path given(path);
    if (given.empty() || given.isAbsolute())
        return path;
    const std::string folder = baseFolder();
    const Filesystem::Path base =
        folder.empty() ? Filesystem::Path::currentDirectory() : Filesystem::Path(folder);
    return given.absoluteFrom(base).str();
}

} // namespace Kestrion
