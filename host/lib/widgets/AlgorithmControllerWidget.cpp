#include "host/lib/widgets/AlgorithmControllerWidget.h"

#include "host/lib/widgets/DisplayWidgetMulti.h"
#include "host/lib/widgets/MainWindow.h"

namespace Kestrion {

AlgorithmControllerWidget::AlgorithmControllerWidget(Algorithm* algorithm, QWidget* parent)
    : QWidget(parent)
    , AlgorithmController(algorithm) {}

AlgorithmControllerWidget::~AlgorithmControllerWidget() = default;

DisplayWidgetMulti* AlgorithmControllerWidget::displayWidget() const {
    return m_display.data();
}

void AlgorithmControllerWidget::setDisplayWidget(DisplayWidgetMulti* display) {
    m_display = display;
}

MainWindow* AlgorithmControllerWidget::mainWindow() const {
    return m_mainWindow.data();
}

void AlgorithmControllerWidget::setMainWindow(MainWindow* window) {
    m_mainWindow = window;
}

} // namespace Kestrion
