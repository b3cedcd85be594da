#pragma once

#include "host/lib/AlgorithmControllerFactory.h"
#include "host/lib/widgets/AlgorithmControllerWidget.h"

#include <future>

class QLabel;
class QPushButton;

namespace Kestrion {

class PropertiesWidget;

/// The desktop host's panel for an algorithm that has no panel of its own: its parameters in a
/// PropertiesWidget (each edit is handed to the algorithm at once) and a Compute button that
/// runs compute() on a worker thread, reporting progress to the main window's display, with
/// the outcome shown below ("Computed", "Failed", or the exception's message).
class PropertiesController : public AlgorithmControllerWidget {
    Q_OBJECT
public:
    explicit PropertiesController(Algorithm* algorithm, QWidget* parent = nullptr);
    /// Waits for a running computation.
    ~PropertiesController() override;

    PropertiesWidget* propertiesWidget() const { return m_properties; }
    QPushButton* computeButton() const { return m_compute; }
    QLabel* statusLabel() const { return m_status; }
    bool isComputing() const { return m_running.valid(); }

public slots:
    /// Starts compute() on a worker thread unless it is running already.
    void compute();

signals:
    void computed(bool success);

private slots:
    void onComputeFinished();

private:
    PropertiesWidget* m_properties;
    QPushButton* m_compute;
    QLabel* m_status;
    std::future<std::string> m_running; // "" on success, else the failure shown
};

/// Makes a PropertiesController for any algorithm. Registered by desktop hosts as a fallback
/// (not preferred), so that a plugin's own controller factory wins.
class PropertiesControllerFactory : public AlgorithmControllerFactory {
public:
    PropertiesControllerFactory();
    AlgorithmController* create(Algorithm* algorithm) override;
};

} // namespace Kestrion
