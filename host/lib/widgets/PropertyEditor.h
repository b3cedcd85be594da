#pragma once

#include <QObject>

#include <string>

class QWidget;

namespace Kestrion {

class Properties;

/// The editor of one parameter of a Properties block, chosen by the parameter's type tag and
/// attributes:
///
/// | parameter                                  | editor                                   |
/// |--------------------------------------------|------------------------------------------|
/// | attribute "values" = "A;B;C"               | combo box; an integer parameter holds the index, any other
/// the text | | "bool"                                     | check box                                | |
/// "int", "unsigned" (within the int range)   | spin box                                 | | "float",
/// "double"                          | double spin box                          | | anything else ("string",
/// "vector", ...)    | line edit, applied when editing finishes |
///
/// Further attributes: "min", "max", "step", "decimals" for the spin boxes, "readonly" =
/// "true" disables the editor, "description" becomes its tool tip.
///
/// A user's edit is written into the block (keeping the parameter's type; text that does not
/// convert is refused with a warning and the old value shown again), then edited() is emitted.
/// The editor is owned by its widget (a child of the parent given).
class PropertyEditor : public QObject {
    Q_OBJECT
public:
    enum class Kind { CheckBox, SpinBox, DoubleSpinBox, ComboBox, LineEdit };

    /// The block must outlive the editor.
    PropertyEditor(Properties& block, const std::string& name, QWidget* parent);

    QWidget* widget() const { return m_widget; }
    Kind kind() const { return m_kind; }
    const std::string& name() const { return m_name; }
    Properties& block() const { return m_block; }

    /// Shows the value the block holds now, without emitting edited().
    void load();

signals:
    void edited();

private:
    void createWidget(QWidget* parent);
    void commit(const std::string& text);
    std::string attribute(const char* name) const;

    Properties& m_block;
    std::string m_name;
    Kind m_kind = Kind::LineEdit;
    bool m_indexValued = false; // combo box of an integer parameter: the value is the index
    QWidget* m_widget = nullptr;
};

} // namespace Kestrion
