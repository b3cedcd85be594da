#pragma once

#include "host/lib/AlgorithmController.h"

#include <QPointer>
#include <QWidget>

namespace Kestrion {

class DisplayWidgetMulti;
class MainWindow;

/// A controller that is a panel of the desktop host. The host creates it through the
/// controller factories, hands it the display and the main window (setDisplayWidget,
/// setMainWindow), shows it, then calls init(). Both pointers are null in hosts without a
/// window (the command line) and become null when their widget is destroyed.
class AlgorithmControllerWidget : public QWidget, public AlgorithmController {
    Q_OBJECT
public:
    explicit AlgorithmControllerWidget(Algorithm* algorithm, QWidget* parent = nullptr);
    ~AlgorithmControllerWidget() override;

    DisplayWidgetMulti* displayWidget() const;
    void setDisplayWidget(DisplayWidgetMulti* display);
    MainWindow* mainWindow() const;
    void setMainWindow(MainWindow* window);

private:
    QPointer<DisplayWidgetMulti> m_display;
    QPointer<MainWindow> m_mainWindow;
};

} // namespace Kestrion
