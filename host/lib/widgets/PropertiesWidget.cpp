#include "host/lib/widgets/PropertiesWidget.h"

#include "host/core/Configurable.h"
#include "host/core/Properties.h"
#include "host/lib/widgets/PropertyEditor.h"
#include "host/lib/widgets/QtHelpers.h"

#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QVBoxLayout>

#include <algorithm>
#include <cctype>
#include <functional>

namespace Kestrion {

namespace {

bool hasHiddenAttribute(const std::optional<std::string>& attribute) {
    bool hidden = false;
    return attribute && PropertyTextDetail::parseBool(*attribute, hidden) && hidden;
}

std::string joinPath(const std::vector<std::string>& blockPath, const std::string& name) {
    std::string path;
    for (const std::string& block : blockPath)
        path += block + '/';
    return path + name;
}

} // namespace

PropertiesWidget::PropertiesWidget(Properties* properties, QWidget* parent)
    : QWidget(parent)
    , m_tree(properties) {
    if (!m_tree) {
        m_owned = std::make_unique<Properties>();
        m_tree = m_owned.get();
    }
    init();
}

PropertiesWidget::PropertiesWidget(Configurable* object, QWidget* parent)
    : QWidget(parent)
    , m_object(object)
    , m_owned(std::make_unique<Properties>()) {
    m_tree = m_owned.get();
    if (m_object)
        m_object->configuration(m_tree);
    init();
}

PropertiesWidget::~PropertiesWidget() = default;

void PropertiesWidget::init() {
    QtHelpers::registerMetaTypes();
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    rebuild();
}

std::string PropertiesWidget::splitCamelCase(const std::string& name) {
    std::string out;
    const auto isUpper = [](char c) { return std::isupper(static_cast<unsigned char>(c)) != 0; };
    const auto isLower = [](char c) { return std::islower(static_cast<unsigned char>(c)) != 0; };
    const auto isDigit = [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; };
    for (std::size_t i = 0; i < name.size(); ++i) {
        char c = name[i];
        if (c == '_')
            c = ' ';
        if (i > 0 && !out.empty() && out.back() != ' ' && c != ' ') {
            const char previous = name[i - 1];
            const bool nextIsLower = i + 1 < name.size() && isLower(name[i + 1]);
            const bool wordStart = isUpper(c) && (isLower(previous) ||
                                                  ((isUpper(previous) || isDigit(previous)) && nextIsLower));
            const bool numberStart = isDigit(c) && isLower(previous);
            if (wordStart || numberStart)
                out += ' ';
        }
        if (c == ' ' && (out.empty() || out.back() == ' '))
            continue;
        out += c;
    }
    while (!out.empty() && out.back() == ' ')
        out.pop_back();
    if (!out.empty())
        out[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(out[0])));
    return out;
}

void PropertiesWidget::hideParameter(const std::string& name) {
    if (std::find(m_hiddenNames.begin(), m_hiddenNames.end(), name) != m_hiddenNames.end())
        return;
    m_hiddenNames.push_back(name);
    rebuild();
}

void PropertiesWidget::setCamelCaseSplitting(bool enabled) {
    if (m_camelCase == enabled)
        return;
    m_camelCase = enabled;
    updateLabels();
}

QString PropertiesWidget::parameterTitle(const Properties& block, const std::string& name) const {
    if (auto label = block.paramAttribute(name, "label"))
        return QtHelpers::toQString(*label);
    return QtHelpers::toQString(m_camelCase ? splitCamelCase(name) : name);
}

QString PropertiesWidget::blockTitle(const Properties& block) const {
    if (auto label = block.attribute("label"))
        return QtHelpers::toQString(*label);
    return QtHelpers::toQString(m_camelCase ? splitCamelCase(block.name()) : block.name());
}

void PropertiesWidget::updateLabels() {
    for (const Row& row : m_rows)
        row.label->setText(parameterTitle(row.editor->block(), row.editor->name()));
    for (const auto& [box, block] : m_groups)
        box->setTitle(blockTitle(*block));
}

std::string PropertiesWidget::shape(const Properties& tree) {
    std::string text;
    const std::function<void(const Properties&)> describe = [&](const Properties& block) {
        text += "{" + block.name() + (hasHiddenAttribute(block.attribute("hidden")) ? "!" : "") + ":";
        for (const std::string& name : block.paramNames()) {
            text += name + "|" + block.paramType(name);
            for (const auto& [attribute, value] : block.paramAttributes(name))
                text += "|" + attribute + "=" + value;
            text += ";";
        }
        for (const Properties* child : block.subProperties())
            describe(*child);
        text += "}";
    };
    describe(tree);
    return text;
}

void PropertiesWidget::rebuild() {
    m_rebuildQueued = false;
    m_rows.clear();
    m_groups.clear();
    delete m_content; // also deletes the editors
    m_content = new QWidget(this);
    auto* grid = new QGridLayout(m_content);
    grid->setContentsMargins(0, 0, 0, 0);
    grid->setColumnStretch(1, 1);
    addBlock(*m_tree, {}, grid);
    layout()->addWidget(m_content);
    m_shape = shape(*m_tree);
}

void PropertiesWidget::addBlock(Properties& block, const std::vector<std::string>& blockPath,
                                QGridLayout* grid) {
    for (const std::string& name : block.paramNames()) {
        if (hasHiddenAttribute(block.paramAttribute(name, "hidden")) ||
            std::find(m_hiddenNames.begin(), m_hiddenNames.end(), name) != m_hiddenNames.end())
            continue;
        const int gridRow = grid->rowCount();
        Row row;
        row.path = joinPath(blockPath, name);
        row.blockPath = blockPath;
        row.editor = new PropertyEditor(block, name, grid->parentWidget());
        row.label = new QLabel(parameterTitle(block, name), grid->parentWidget());
        row.label->setBuddy(row.editor->widget());
        grid->addWidget(row.label, gridRow, 0);
        grid->addWidget(row.editor->widget(), gridRow, 1);
        const std::size_t index = m_rows.size();
        connect(row.editor, &PropertyEditor::edited, this, [this, index]() { onEdited(m_rows[index]); });
        m_rows.push_back(std::move(row));
    }
    for (Properties* child : block.subProperties()) {
        if (hasHiddenAttribute(child->attribute("hidden")))
            continue;
        auto* box = new QGroupBox(blockTitle(*child), grid->parentWidget());
        auto* childGrid = new QGridLayout(box);
        childGrid->setColumnStretch(1, 1);
        std::vector<std::string> childPath = blockPath;
        childPath.push_back(child->name());
        const std::size_t rowsBefore = m_rows.size();
        addBlock(*child, childPath, childGrid);
        if (m_rows.size() == rowsBefore && childGrid->count() == 0) { // nothing visible inside
            delete box;
            continue;
        }
        m_groups.emplace_back(box, child);
        grid->addWidget(box, grid->rowCount(), 0, 1, 2);
    }
}

void PropertiesWidget::onEdited(const Row& row) {
    m_lastName = row.editor->name();
    m_lastPath = row.blockPath;
    ++m_announcing;
    emit parameterChanged(m_lastName);
    --m_announcing;
}

void PropertiesWidget::reload() {
    Properties fresh;
    if (m_object)
        m_object->configuration(&fresh);
    const Properties& current = m_object ? fresh : *m_tree;
    if (shape(current) == m_shape) {
        // Same parameters and blocks: the values are copied into the blocks the editors use.
        if (m_object)
            copyValues(fresh, *m_tree);
        for (const Row& row : m_rows)
            row.editor->load();
        return;
    }
    if (m_object)
        *m_tree = fresh; // replaces the blocks the editors point into
    // Until the rebuild no editor may touch the tree, so they are disabled right away.
    for (const Row& row : m_rows)
        row.editor->widget()->setEnabled(false);
    if (m_announcing > 0) { // the editor announcing an edit must not be deleted under it
        if (!m_rebuildQueued) {
            m_rebuildQueued = true;
            QMetaObject::invokeMethod(
                this, [this]() { rebuild(); }, Qt::QueuedConnection);
        }
    } else {
        rebuild();
    }
}

void PropertiesWidget::copyValues(const Properties& from, Properties& into) {
    for (const std::string& name : from.paramNames())
        into.setParamText(name, from.paramText(name).value_or(std::string()), from.paramType(name));
    const std::vector<const Properties*> sources = from.subProperties();
    const std::vector<Properties*> targets = into.subProperties();
    for (std::size_t i = 0; i < sources.size() && i < targets.size(); ++i)
        copyValues(*sources[i], *targets[i]);
}

bool PropertiesWidget::applyLastChange(Configurable* target) const {
    if (!target || m_lastName.empty())
        return false;
    const Properties* source = m_tree;
    for (const std::string& blockName : m_lastPath) {
        source = source->subProperty(blockName);
        if (!source)
            return false;
    }
    if (!source->hasParam(m_lastName))
        return false;
    Properties change(m_tree->name());
    change.setBaseFolder(m_tree->baseFolder());
    Properties* block = &change;
    for (const std::string& blockName : m_lastPath)
        block = block->addSubProperties(blockName);
    block->setParamText(m_lastName, source->paramText(m_lastName).value_or(std::string()),
                        source->paramType(m_lastName));
    for (const auto& [attribute, value] : source->paramAttributes(m_lastName))
        block->setParamAttribute(m_lastName, attribute, value);
    target->configure(&change);
    return true;
}

QWidget* PropertiesWidget::editor(const std::string& path) const {
    for (const Row& row : m_rows)
        if (row.path == path)
            return row.editor->widget();
    return nullptr;
}

QLabel* PropertiesWidget::label(const std::string& path) const {
    for (const Row& row : m_rows)
        if (row.path == path)
            return row.label;
    return nullptr;
}

} // namespace Kestrion
