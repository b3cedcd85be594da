#include "host/lib/widgets/PropertiesController.h"

#include "host/core/Algorithm.h"
#include "host/core/Log.h"
#include "host/lib/widgets/MainWindow.h"
#include "host/lib/widgets/PropertiesWidget.h"
#include "host/lib/widgets/QtHelpers.h"

#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include <exception>

namespace Kestrion {

PropertiesController::PropertiesController(Algorithm* algorithm, QWidget* parent)
    : AlgorithmControllerWidget(algorithm, parent)
    , m_properties(new PropertiesWidget(static_cast<Configurable*>(algorithm), this))
    , m_compute(new QPushButton(tr("Compute"), this))
    , m_status(new QLabel(this)) {
    auto* layout = new QVBoxLayout(this);
    m_properties->setCamelCaseSplitting(true);
    layout->addWidget(m_properties);
    layout->addWidget(m_compute);
    layout->addWidget(m_status);
    layout->addStretch(1);
    m_compute->setEnabled(algorithm != nullptr);
    connect(m_properties, &PropertiesWidget::parameterChanged, this,
            [this]() { m_properties->applyLastChange(this->algorithm()); });
    connect(m_compute, &QPushButton::clicked, this, &PropertiesController::compute);
}

PropertiesController::~PropertiesController() {
    if (m_running.valid())
        m_running.wait(); // the worker uses the algorithm and posts to this panel
}

void PropertiesController::compute() {
    Algorithm* target = algorithm();
    if (!target || m_running.valid())
        return;
    if (MainWindow* window = mainWindow())
        target->setProgress(window->progress());
    m_compute->setEnabled(false);
    m_status->setText(tr("Computing..."));
    // The panel outlives the worker (its destructor waits), so the worker may post to it.
    m_running = std::async(std::launch::async, [this, target]() -> std::string {
        std::string failure;
        try {
            target->compute();
            if (target->status() != Algorithm::Success)
                failure = "Failed";
        } catch (const std::exception& e) {
            failure = std::string("Failed: ") + e.what();
        } catch (...) {
            failure = "Failed: unknown exception";
        }
        QMetaObject::invokeMethod(this, "onComputeFinished", Qt::QueuedConnection);
        return failure;
    });
}

void PropertiesController::onComputeFinished() {
    if (!m_running.valid())
        return;
    const std::string failure = m_running.get();
    if (Algorithm* target = algorithm())
        target->setProgress(nullptr);
    m_compute->setEnabled(true);
    m_status->setText(failure.empty() ? tr("Computed") : QtHelpers::toQString(failure));
    if (!failure.empty())
        KESTRION_LOG_ERROR("PropertiesController", algorithm()->identifier() << ": " << failure);
    m_properties->reload();
    emit computed(failure.empty());
}

PropertiesControllerFactory::PropertiesControllerFactory()
    : AlgorithmControllerFactory("Kestrion", false) {}

AlgorithmController* PropertiesControllerFactory::create(Algorithm* algorithm) {
    return algorithm ? new PropertiesController(algorithm) : nullptr;
}

} // namespace Kestrion
