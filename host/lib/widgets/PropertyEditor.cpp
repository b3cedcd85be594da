#include "host/lib/widgets/PropertyEditor.h"

#include "host/core/Log.h"
#include "host/core/Properties.h"
#include "host/lib/widgets/QtHelpers.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLineEdit>
#include <QSignalBlocker>
#include <QSpinBox>

#include <climits>
#include <cmath>

namespace Kestrion {

namespace {

const char* const Category = "PropertiesWidget";

bool isTrue(const std::string& text) {
    bool value = false;
    return PropertyTextDetail::parseBool(text, value) && value;
}

/// The fewest decimals (at least 2, at most 10) that show the value without rounding it.
int decimalsFor(double value) {
    for (int decimals = 2; decimals < 10; ++decimals) {
        const double scale = std::pow(10.0, decimals);
        if (std::abs(std::round(value * scale) / scale - value) <= 1e-12 * std::max(1.0, std::abs(value)))
            return decimals;
    }
    return 10;
}

} // namespace

PropertyEditor::PropertyEditor(Properties& block, const std::string& name, QWidget* parent)
    : m_block(block)
    , m_name(name) {
    createWidget(parent);
    setParent(m_widget);
    m_widget->setEnabled(!isTrue(attribute("readonly")));
    const std::string description = attribute("description");
    if (!description.empty())
        m_widget->setToolTip(QtHelpers::toQString(description));
    load();
}

std::string PropertyEditor::attribute(const char* name) const {
    return m_block.paramAttribute(m_name, name).value_or(std::string());
}

void PropertyEditor::createWidget(QWidget* parent) {
    const std::string type = m_block.paramType(m_name);
    const std::string text = m_block.paramText(m_name).value_or(std::string());
    const std::string values = attribute("values");

    if (!values.empty()) {
        auto* combo = new QComboBox(parent);
        combo->addItems(QtHelpers::toQString(values).split(QLatin1Char(';')));
        m_kind = Kind::ComboBox;
        m_indexValued = type == "int" || type == "unsigned";
        connect(combo, QOverload<int>::of(&QComboBox::currentIndexChanged), this, [this, combo](int index) {
            if (index >= 0)
                commit(m_indexValued ? std::to_string(index) : QtHelpers::toStdString(combo->currentText()));
        });
        m_widget = combo;
        return;
    }
    if (type == "bool") {
        auto* check = new QCheckBox(parent);
        m_kind = Kind::CheckBox;
        connect(check, &QCheckBox::toggled, this, [this](bool on) { commit(on ? "true" : "false"); });
        m_widget = check;
        return;
    }
    long long integer = 0;
    if ((type == "int" || type == "unsigned") &&
        PropertyTextDetail::parseSigned(text, INT_MIN, INT_MAX, integer)) {
        auto* spin = new QSpinBox(parent);
        int minimum = type == "unsigned" ? 0 : INT_MIN;
        int maximum = INT_MAX;
        long long bound = 0;
        if (PropertyTextDetail::parseSigned(attribute("min"), INT_MIN, INT_MAX, bound))
            minimum = static_cast<int>(bound);
        if (PropertyTextDetail::parseSigned(attribute("max"), INT_MIN, INT_MAX, bound))
            maximum = static_cast<int>(bound);
        if (PropertyTextDetail::parseSigned(attribute("step"), 1, INT_MAX, bound))
            spin->setSingleStep(static_cast<int>(bound));
        spin->setRange(minimum, maximum);
        spin->setKeyboardTracking(false); // one change per finished entry, not per key
        m_kind = Kind::SpinBox;
        connect(spin, QOverload<int>::of(&QSpinBox::valueChanged), this,
                [this](int value) { commit(std::to_string(value)); });
        m_widget = spin;
        return;
    }
    double real = 0.0;
    if ((type == "double" || type == "float") && PropertyTextDetail::parseDouble(text, real) &&
        std::isfinite(real)) {
        auto* spin = new QDoubleSpinBox(parent);
        double minimum = -1e12;
        double maximum = 1e12;
        double bound = 0.0;
        if (PropertyTextDetail::parseDouble(attribute("min"), bound))
            minimum = bound;
        if (PropertyTextDetail::parseDouble(attribute("max"), bound))
            maximum = bound;
        long long decimals = 0;
        spin->setDecimals(PropertyTextDetail::parseSigned(attribute("decimals"), 0, 15, decimals)
                              ? static_cast<int>(decimals)
                              : decimalsFor(real));
        if (PropertyTextDetail::parseDouble(attribute("step"), bound) && bound > 0.0)
            spin->setSingleStep(bound);
        spin->setRange(minimum, maximum);
        spin->setKeyboardTracking(false);
        m_kind = Kind::DoubleSpinBox;
        connect(spin, QOverload<double>::of(&QDoubleSpinBox::valueChanged), this, [this, type](double value) {
            commit(type == "float" ? PropertyTextDetail::formatFloat(static_cast<float>(value))
                                   : PropertyTextDetail::formatDouble(value));
        });
        m_widget = spin;
        return;
    }
    auto* edit = new QLineEdit(parent);
    m_kind = Kind::LineEdit;
    connect(edit, &QLineEdit::editingFinished, this, [this, edit]() {
        const std::string entered = QtHelpers::toStdString(edit->text());
        if (entered != m_block.paramText(m_name).value_or(std::string()))
            commit(entered);
    });
    m_widget = edit;
}

void PropertyEditor::load() {
    const std::string text = m_block.paramText(m_name).value_or(std::string());
    const QSignalBlocker blocker(m_widget);
    switch (m_kind) {
    case Kind::CheckBox:
        static_cast<QCheckBox*>(m_widget)->setChecked(isTrue(text));
        break;
    case Kind::SpinBox: {
        long long value = 0;
        if (PropertyTextDetail::parseSigned(text, INT_MIN, INT_MAX, value))
            static_cast<QSpinBox*>(m_widget)->setValue(static_cast<int>(value));
        break;
    }
    case Kind::DoubleSpinBox: {
        double value = 0.0;
        if (PropertyTextDetail::parseDouble(text, value))
            static_cast<QDoubleSpinBox*>(m_widget)->setValue(value);
        break;
    }
    case Kind::ComboBox: {
        auto* combo = static_cast<QComboBox*>(m_widget);
        long long index = -1;
        if (m_indexValued)
            PropertyTextDetail::parseSigned(text, -1, combo->count() - 1, index);
        else
            index = combo->findText(QtHelpers::toQString(text));
        combo->setCurrentIndex(static_cast<int>(index));
        break;
    }
    case Kind::LineEdit: {
        auto* edit = static_cast<QLineEdit*>(m_widget);
        const QString shown = QtHelpers::toQString(text);
        if (edit->text() != shown) // keeps the cursor where it is when nothing changed
            edit->setText(shown);
        break;
    }
    }
}

void PropertyEditor::commit(const std::string& text) {
    // Vectors and matrices keep their number of coefficients: the tag does not record the size.
    const std::string type = m_block.paramType(m_name);
    const bool sizeKept =
        (type != "vector" && type != "matrix") ||
        PropertyTextDetail::words(text).size() ==
            PropertyTextDetail::words(m_block.paramText(m_name).value_or(std::string())).size();
    if (!sizeKept || !m_block.setParamFromText(m_name, text)) {
        KESTRION_LOG_WARN(Category, "\"" << text << "\" is not a valid value for parameter \"" << m_name
                                         << "\" of type " << m_block.paramType(m_name));
        load();
        return;
    }
    emit edited();
}

} // namespace Kestrion
