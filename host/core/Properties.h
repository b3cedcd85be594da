#pragma once

#include "host/core/PropertyText.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Kestrion {

/// A named tree of settings: typed parameters (each with its own attributes) and ordered blocks
/// of sub-properties, which may carry attributes too. Parameter names are unique within a block;
/// block names need not be (subProperty finds the first). Parameters keep their insertion order,
/// and so do blocks.
///
/// Values are held as text with a type tag (see PropertyText), so a value written as one type can
/// be read as another when the text allows it (an int as a double, anything as a string).
///
/// Files: PropertiesXml reads and writes trees as XML (workspace ".kws" files are such files).
/// A tree read from a file remembers the file's folder, so that relative paths stored in it can be
/// resolved with absolutePath().
///
/// Not thread-safe: like any value, a tree is used by one thread at a time.
class Properties {
public:
    using Attributes = std::vector<std::pair<std::string, std::string>>;

    explicit Properties(std::string name = std::string());
    /// Deep copy. The copy is a root of its own; it keeps the base folder that the original
    /// resolves relative paths against.
    Properties(const Properties& other);
    /// Deep copy of the other tree into this block; this block keeps its place (and parent).
    Properties& operator=(const Properties& other);
    Properties(Properties&& other) noexcept;
    Properties& operator=(Properties&& other) noexcept;
    ~Properties();
    std::unique_ptr<Properties> clone() const;

    const std::string& name() const { return m_name; }
    /// Renames the block in place (its position among its siblings is kept).
    void setName(const std::string& name) { m_name = name; }
    Properties* parent() { return m_parent; }
    const Properties* parent() const { return m_parent; }

    // Parameters ---------------------------------------------------------------------------

    /// Creates or replaces a parameter; a replaced one keeps its position and attributes.
    template <class T>
    void setParam(const std::string& name, const T& value) {
        setParamText(name, PropertyText<T>::toText(value), PropertyText<T>::type());
    }
    void setParam(const std::string& name, const char* value);

    /// Reads a parameter into out. Returns false, leaving out untouched, when the parameter is
    /// absent or its text does not convert to T.
    template <class T>
    bool getParam(const std::string& name, T& out) const {
        const std::string* text = findText(name);
        return text && PropertyText<T>::fromText(*text, out);
    }
    /// The parameter's value, or the fallback when it is absent or does not convert.
    template <class T>
    T param(const std::string& name, T fallback) const {
        getParam(name, fallback);
        return fallback;
    }

    bool hasParam(const std::string& name) const { return findText(name) != nullptr; }
    bool removeParam(const std::string& name);
    std::vector<std::string> paramNames() const;
    /// The stored text and type tag ("" when absent).
    std::optional<std::string> paramText(const std::string& name) const;
    std::string paramType(const std::string& name) const;
    /// Stores text under a type tag. Returns false (and changes nothing) when the text is not a
    /// valid value of a known tag (e.g. "abc" for "int").
    bool setParamText(const std::string& name, const std::string& text, const std::string& type);
    /// Sets a parameter from text, keeping the type of an existing parameter ("string" for a
    /// new one); false when the text does not fit that type. Used by editors.
    bool setParamFromText(const std::string& name, const std::string& text);

    /// Attributes of a parameter (e.g. "hidden" = "true"). Setting one on an absent parameter, or
    /// one named "name" or "type" (the file format's own), or with a name that is not a plain
    /// word (letters, digits, '_', '-', '.'), fails with a warning.
    bool setParamAttribute(const std::string& name, const std::string& attribute, const std::string& value);
    std::optional<std::string> paramAttribute(const std::string& name, const std::string& attribute) const;
    Attributes paramAttributes(const std::string& name) const;
    bool removeParamAttribute(const std::string& name, const std::string& attribute);

    // Block attributes ---------------------------------------------------------------------

    /// Same naming rules as parameter attributes ("name" is reserved).
    bool setAttribute(const std::string& attribute, const std::string& value);
    std::optional<std::string> attribute(const std::string& attribute) const;
    const Attributes& attributes() const { return m_attributes; }

    // Sub-properties -----------------------------------------------------------------------

    /// Appends a new empty block and returns it (owned by this tree; valid until it is removed
    /// or this block is destroyed or assigned). An existing block of that name is not reused.
    Properties* addSubProperties(const std::string& name);
    /// Appends a deep copy of a block.
    Properties* addSubProperties(const Properties& block);
    /// The first direct child of that name, or null; never creates one.
    Properties* subProperty(const std::string& name);
    const Properties* subProperty(const std::string& name) const;
    /// The direct children in order.
    std::vector<Properties*> subProperties();
    std::vector<const Properties*> subProperties() const;
    /// Removes every direct child of that name; true when one was removed.
    bool removeSubProperties(const std::string& name);
    /// Removes that very child; false when it is not a direct child of this block.
    bool removeSubProperties(const Properties* block);

    /// No parameters, no attributes and no sub-properties.
    bool empty() const;
    /// Removes parameters, attributes and sub-properties (the name and base folder stay).
    void clear();

    /// Same name, parameters (names, order, texts, types, attributes), attributes and children.
    bool operator==(const Properties& other) const;
    bool operator!=(const Properties& other) const { return !(*this == other); }

    // Paths --------------------------------------------------------------------------------

    /// The folder that relative paths in this block are taken against: the one set on this block
    /// or on its nearest ancestor (PropertiesXml sets the file's folder on the root it reads);
    /// "" when none is set.
    std::string baseFolder() const;
    void setBaseFolder(const std::string& folder);
    /// An absolute path stays as it is; a relative one is joined to baseFolder() (or, when that
    /// is empty, the current working directory) and normalised. An empty path stays empty.
    std::string absolutePath(const std::string& path) const;

private:
    struct Param {
        std::string name;
        std::string type;
        std::string text;
        Attributes attributes;
        bool operator==(const Param& other) const;
    };

    const std::string* findText(const std::string& name) const;
    Param* findParam(const std::string& name);
    const Param* findParam(const std::string& name) const;
    void copyContentFrom(const Properties& other);
    void takeContentFrom(Properties& other);

    std::string m_name;
    std::vector<Param> m_params;
    Attributes m_attributes;
    std::vector<std::unique_ptr<Properties>> m_children;
    Properties* m_parent = nullptr;
    std::string m_baseFolder;
};

} // namespace Kestrion
