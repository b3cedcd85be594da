#pragma once

#include "host/lib/widgets/QtMetaTypes.h"

#include <QWidget>

#include <memory>
#include <string>
#include <vector>

class QGridLayout;
class QGroupBox;
class QLabel;

namespace Kestrion {

class Configurable;
class Properties;
class PropertyEditor;

/// Edits a Properties tree: one row per parameter (a label and an editor chosen by the
/// parameter's type, see PropertyEditor) and a titled group per sub-block. Parameters and
/// blocks with the attribute "hidden" = "true" are not shown; the attribute "label" replaces
/// the name shown. With camel-case splitting on, names are shown as words:
/// "maxFiducialMarkerDistance" reads "Max Fiducial Marker Distance".
///
/// A user's edit changes the edited tree and then emits parameterChanged(name). Made for a
/// Configurable (an algorithm, a stream), the widget edits a copy of the object's configuration();
/// the object itself is left to the receiver of the signal, which hands the edit over with
/// applyLastChange(). GUI thread only.
class PropertiesWidget : public QWidget {
    Q_OBJECT
public:
    /// Edits the tree in place; the tree must outlive the widget.
    explicit PropertiesWidget(Properties* properties, QWidget* parent = nullptr);
    /// Edits a copy of the object's configuration; the object must outlive the widget.
    explicit PropertiesWidget(Configurable* object, QWidget* parent = nullptr);
    ~PropertiesWidget() override;

    /// The edited tree.
    Properties& properties() { return *m_tree; }
    /// The object the widget was made for, or null.
    Configurable* object() const { return m_object; }

    void setCamelCaseSplitting(bool enabled);
    bool camelCaseSplitting() const { return m_camelCase; }
    /// Leaves a parameter (of any block) out of view, for a panel that shows it with an editor of
    /// its own; it stays in the tree and in the saved configuration.
    void hideParameter(const std::string& name);
    /// "maxFiducialMarkerDistance" -> "Max Fiducial Marker Distance", "SDKPath" -> "SDK Path",
    /// "max_distance" -> "Max distance"; text that already has spaces keeps its words.
    static std::string splitCamelCase(const std::string& name);

    /// Shows the current values: for an object, its configuration() read again; for a tree, the
    /// tree as it is now. No signal is emitted. Rows are rebuilt when parameters or blocks came
    /// or went (deferred to the event loop when called while an edit is being announced).
    void reload();

    /// The name of the parameter edited last ("" before the first edit) and the names of the
    /// blocks above it, outermost first.
    const std::string& lastChangedParameter() const { return m_lastName; }
    const std::vector<std::string>& lastChangedBlockPath() const { return m_lastPath; }
    /// Configures the target with a tree that holds only the last edited parameter (in its
    /// blocks, with its attributes), so that settings edited elsewhere since are not
    /// overwritten. False when nothing was edited yet or the target is null.
    bool applyLastChange(Configurable* target) const;

    /// The editor widget and the label of a visible parameter; nested parameters are named by
    /// their block path, "Block/Sub/name". Null when hidden or absent.
    QWidget* editor(const std::string& path) const;
    QLabel* label(const std::string& path) const;
    /// The number of editor rows shown.
    int rowCount() const { return static_cast<int>(m_rows.size()); }

signals:
    void parameterChanged(const std::string& name);

private:
    struct Row {
        std::string path; // "Block/Sub/name"
        std::vector<std::string> blockPath;
        PropertyEditor* editor = nullptr;
        QLabel* label = nullptr;
    };

    void init();
    void rebuild();
    void addBlock(Properties& block, const std::vector<std::string>& blockPath, QGridLayout* layout);
    void updateLabels();
    QString parameterTitle(const Properties& block, const std::string& name) const;
    QString blockTitle(const Properties& block) const;
    void onEdited(const Row& row);
    /// Names, types and attributes of every parameter and block: rows are rebuilt when it changes.
    static std::string shape(const Properties& tree);
    /// Copies the parameter values of a tree of the same shape.
    static void copyValues(const Properties& from, Properties& into);

    Configurable* m_object = nullptr;
    std::unique_ptr<Properties> m_owned;
    Properties* m_tree = nullptr;
    std::vector<std::string> m_hiddenNames;
    bool m_camelCase = false;
    QWidget* m_content = nullptr;
    std::vector<Row> m_rows;
    std::vector<std::pair<QGroupBox*, const Properties*>> m_groups; // titled sub-blocks
    std::string m_shape;
    std::string m_lastName;
    std::vector<std::string> m_lastPath;
    int m_announcing = 0; // >0 while parameterChanged is being emitted
    bool m_rebuildQueued = false;
};

} // namespace Kestrion
