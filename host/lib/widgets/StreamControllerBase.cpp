#include "host/lib/widgets/StreamControllerBase.h"

#include "host/core/Algorithm.h"
#include "host/lib/widgets/PropertiesWidget.h"
#include "host/lib/widgets/QtHelpers.h"

namespace Kestrion {

StreamControllerBase::StreamControllerBase(Algorithm* algorithm, QWidget* parent)
    : AlgorithmControllerWidget(algorithm, parent) {
    QtHelpers::registerMetaTypes();
}

StreamControllerBase::~StreamControllerBase() {
    // Stream signals come from worker threads: end them before the derived panel's and this
    // panel's members are gone (the SignalReceiver base would do it only afterwards).
    disconnectAllSignals();
}

void StreamControllerBase::init() {
    AlgorithmController::init();
}

void StreamControllerBase::setPropertiesWidget(PropertiesWidget* widget) {
    m_propertiesWidget = widget;
}

PropertiesWidget* StreamControllerBase::propertiesWidget() const {
    return m_propertiesWidget.data();
}

PropertiesWidget* StreamControllerBase::activePropertiesWidget() const {
    if (auto* widget = qobject_cast<PropertiesWidget*>(sender()))
        return widget;
    return m_propertiesWidget.data();
}

void StreamControllerBase::onParameterChanged() {
    if (PropertiesWidget* widget = activePropertiesWidget())
        widget->applyLastChange(algorithm());
}

void StreamControllerBase::updateStreamSettings() {
    PropertiesWidget* widget = activePropertiesWidget();
    if (widget && widget->object())
        widget->reload();
}

} // namespace Kestrion
