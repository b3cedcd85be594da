#include "atracsys/gui/AtracsysTrackingController.h"

#include "atracsys/gui/AtracsysMarkersWidget.h"
#include "atracsys/gui/AtracsysMetaTypes.h"
#include "atracsys/gui/AtracsysRecordingPanel.h"
#include "host/core/Log.h"
#include "host/lib/widgets/LogAlertWidget.h"
#include "host/lib/widgets/MainWindow.h"
#include "host/lib/widgets/PropertiesWidget.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileInfo>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QMetaObject>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

namespace Kestrion {

namespace {

constexpr const char* Category = "AtracsysTrackingController";
using State = Stream::State;

} // namespace

AtracsysTrackingController::AtracsysTrackingController(CreateAlgorithm* algorithm)
    : StreamControllerBase(algorithm, nullptr)
    , m_propertiesWidget(nullptr)
    , m_layout(nullptr)
    , m_stream(nullptr)
    , m_generalBox(nullptr)
    , m_generalLayout(nullptr)
    , m_connectionButton(nullptr)
    , m_startButton(nullptr)
    , m_fiducialModeCombo(nullptr)
    , m_showImagesCheck(nullptr)
    , m_framePacingSpin(nullptr)
    , m_reconnectCheck(nullptr)
    , m_reconnectLabel(nullptr)
    , m_markersWidget(nullptr)
    , m_recordingPanel(nullptr) {
    registerAtracsysMetaTypes();
    setupGUI();
}

AtracsysTrackingController::~AtracsysTrackingController() {
    // The state-change slot queues calls on this panel from the stream's control thread: end it
    // before the panel's members go.
    disconnectAllSignals();
    delete m_recordingPanel; // waits for a recording being started on the stream
    m_recordingPanel = nullptr;
    m_reconnector.reset(); // before anything it may still reopen the stream for
    m_renderer.reset();
}

void AtracsysTrackingController::setupGUI() {
    m_propertiesWidget = new PropertiesWidget(algorithm(), this);
    m_layout = new QVBoxLayout(this);
    setLayout(m_layout);
    m_layout->addWidget(m_propertiesWidget);
    setPropertiesWidget(m_propertiesWidget);
    connect(m_propertiesWidget, &PropertiesWidget::parameterChanged, this,
            &StreamControllerBase::onParameterChanged);

    m_generalBox = new QGroupBox("General", this);
    m_generalLayout = new QGridLayout(m_generalBox);
    m_layout->addWidget(m_generalBox);

    m_connectionButton = new QPushButton("Init", m_generalBox);
    m_startButton = new QPushButton("Start", m_generalBox);
    m_generalLayout->addWidget(m_connectionButton, 0, 0);
    m_generalLayout->addWidget(m_startButton, 0, 1);
    connect(m_connectionButton, &QPushButton::pressed, this, &AtracsysTrackingController::onValueChanged);
    connect(m_startButton, &QPushButton::pressed, this, &AtracsysTrackingController::onValueChanged);

    // The index of each choice is its FiducialQueryMode value.
    m_fiducialModeCombo = new QComboBox(m_generalBox);
    m_fiducialModeCombo->addItems({"None", "Belonging to marker", "All in marker vicinity", "All"});
    connect(m_fiducialModeCombo, &QComboBox::currentTextChanged, this,
            &AtracsysTrackingController::onFiducialQueryModeChanged);
    m_generalLayout->addWidget(new QLabel("Fiducial Mode:", m_generalBox), 1, 0);
    m_generalLayout->addWidget(m_fiducialModeCombo, 1, 1);

    m_showImagesCheck = new QCheckBox("Show images", m_generalBox);
    m_generalLayout->addWidget(m_showImagesCheck, 2, 0, 2, 1);
    connect(m_showImagesCheck, &QCheckBox::stateChanged, this,
            &AtracsysTrackingController::onQueryImagesStateChanged);
    setupAcquisitionControls();

    // The properties go below the general box. The integration time has its editor in the
    // markers widget: one control for it, whichever way the panel was made.
    m_propertiesWidget->setCamelCaseSplitting(true);
    m_propertiesWidget->hideParameter("imageIntegrationTime");
    m_layout->removeWidget(m_propertiesWidget);
    m_layout->addWidget(m_propertiesWidget);
    connect(m_propertiesWidget, &PropertiesWidget::parameterChanged, this,
            &StreamControllerBase::updateStreamSettings);

    updateGUI();
}

void AtracsysTrackingController::updateGUI() {
    if (!m_stream) {
        setEnabled(false);
        return;
    }
    setEnabled(true);
    const State state = m_stream->currentState();
    const bool initialized = m_stream->isInitialized();

    if (state == State::Opening)
        m_connectionButton->setText("Initializing...");
    else if (state == State::Closing)
        m_connectionButton->setText("Closing...");
    else
        m_connectionButton->setText(initialized ? "Close Connection" : "Open Connection");

    m_startButton->setEnabled(initialized);
    if (state == State::Starting)
        m_startButton->setText("Starting...");
    else if (state == State::Running)
        m_startButton->setText("Stop");
    else if (state == State::Stopping)
        m_startButton->setText("Stopping...");
    else
        m_startButton->setText("Start");

    // Images are chosen before the connection is opened.
    m_showImagesCheck->setEnabled(state == State::Closed);
    // "Instruments empty!" is no longer true once the stream has an instrument.
    if (mainWindow() && mainWindow()->logAlert() && m_stream->numInstruments(false) > 0)
        mainWindow()->logAlert()->resolve(QString::fromLatin1(Category));

    // Showing the stream's settings must not hand them back to the stream.
    {
        const QSignalBlocker blocker(m_fiducialModeCombo);
        m_fiducialModeCombo->setCurrentIndex(static_cast<int>(m_stream->fiducialQueryMode()));
    }
    {
        const QSignalBlocker blocker(m_showImagesCheck);
        m_showImagesCheck->setChecked(m_stream->queryImages());
    }
    updateAcquisitionControls(state);
}

void AtracsysTrackingController::onValueChanged() {
    auto* widget = qobject_cast<QWidget*>(sender());
    if (!m_stream || !widget)
        return;
    if (widget == m_connectionButton) {
        if (m_stream->isInitialized()) {
            if (m_reconnector)
                m_reconnector->disarm(); // a close asked for stays closed
            m_stream->closeAsync();
        } else
            m_stream->openAsync();
    } else if (widget == m_startButton) {
        if (m_stream->isStateOneOf({State::Starting, State::Running})) {
            if (m_reconnector)
                m_reconnector->disarm();
            m_stream->stopAsync().get();
        } else {
            if (m_stream->numInstruments(false) == 0)
                KESTRION_LOG_WARN(Category, "AtracsysTracking: Instruments empty!");
            m_stream->startAsync().get();
        }
    }
    updateGUI();
}

void AtracsysTrackingController::onFiducialQueryModeChanged(const QString& /*text*/) {
    if (m_stream)
        m_stream->setFiducialQueryMode(
            static_cast<AtracsysTrackingStreamBase::FiducialQueryMode>(m_fiducialModeCombo->currentIndex()));
}

void AtracsysTrackingController::onQueryImagesStateChanged(int checkState) {
    if (!m_stream)
        return;
    if (checkState == Qt::Checked) {
        m_stream->setQueryImages(true);
        createRenderer();
    } else {
        // The camera view stays: it simply receives no images.
        m_stream->setQueryImages(false);
    }
}

void AtracsysTrackingController::createRenderer() {
    DisplayWidgetMulti* display = displayWidget();
    if (!m_stream || !display)
        return;
    auto renderer = std::make_unique<AtracsysRenderer>(*m_stream, *display);
    m_renderer = std::move(renderer); // the replaced one is deleted after the new one exists
}

void AtracsysTrackingController::init() {
    StreamControllerBase::init();
    auto* createAlgorithm = dynamic_cast<CreateAlgorithm*>(algorithm());
    m_stream = createAlgorithm ? dynamic_cast<SpryTrack::AtracsysTrackingStream*>(createAlgorithm->stream())
                               : nullptr;
    if (!m_stream) {
        KESTRION_LOG_ERROR("", "Stream not available for initialization!");
        return;
    }

    if (m_stream->queryImages())
        createRenderer();

    // Recording, right below the connection and tracking controls.
    m_recordingPanel = new AtracsysRecordingPanel(*m_stream, this);
    m_recordingPanel->setStartFolder([this] {
        const std::string workspace = mainWindow() ? mainWindow()->workspaceFile() : std::string();
        return workspace.empty() ? QString() : QFileInfo(QString::fromStdString(workspace)).absolutePath();
    });
    m_layout->insertWidget(m_layout->indexOf(m_generalBox) + 1, m_recordingPanel);

    m_markersWidget = new AtracsysMarkersWidget(m_stream, true, this);
    m_markersWidget->setMainWindow(mainWindow());
    m_layout->addWidget(m_markersWidget);

    // State changes come from the stream's control thread, and the reconnector's from its own.
    m_stream->signalStateChanged.connect(
        this, [this](State) { QMetaObject::invokeMethod(this, "updateGUI", Qt::QueuedConnection); });
    m_reconnector = std::make_unique<StreamReconnector>(*m_stream);
    m_reconnector->signalStateChanged.connect(this, [this](StreamReconnector::State) {
        QMetaObject::invokeMethod(this, "updateGUI", Qt::QueuedConnection);
    });
    updateGUI();

    if (m_stream->startAfterInit() && m_stream->isInitialized() &&
        !m_stream->isStateOneOf({State::Starting, State::Running}))
        createAlgorithm->stream()->startAsync().get();
}

} // namespace Kestrion

namespace Kestrion {

void AtracsysTrackingController::setupAcquisitionControls() {
    // Rows 2 and 3 belong to "Show images"; these follow.
    m_framePacingSpin = new QSpinBox(m_generalBox);
    m_framePacingSpin->setObjectName("framePacingSpin");
    m_framePacingSpin->setRange(0, 1000);
    m_framePacingSpin->setSuffix(" ms");
    m_framePacingSpin->setSpecialValueText("camera");
    m_framePacingSpin->setToolTip("Time between two frame fetches; \"camera\" (0): every frame as the "
                                  "camera delivers it");
    m_generalLayout->addWidget(new QLabel("Frame pacing:", m_generalBox), 4, 0);
    m_generalLayout->addWidget(m_framePacingSpin, 4, 1);
    connect(m_framePacingSpin, qOverload<int>(&QSpinBox::valueChanged), this,
            &AtracsysTrackingController::onFramePacingChanged);

    m_reconnectCheck = new QCheckBox("Reconnect", m_generalBox);
    m_reconnectCheck->setToolTip("Reopen the camera once a second when it stops delivering frames");
    m_reconnectLabel = new QLabel(m_generalBox);
    m_reconnectLabel->setObjectName("reconnectLabel");
    m_generalLayout->addWidget(m_reconnectCheck, 5, 0);
    m_generalLayout->addWidget(m_reconnectLabel, 5, 1);
    connect(m_reconnectCheck, &QCheckBox::stateChanged, this,
            &AtracsysTrackingController::onReconnectStateChanged);
}

void AtracsysTrackingController::updateAcquisitionControls(State state) {
    {
        const QSignalBlocker blocker(m_framePacingSpin);
        m_framePacingSpin->setValue(m_stream->framePacingMs());
    }
    {
        const QSignalBlocker blocker(m_reconnectCheck);
        m_reconnectCheck->setChecked(m_stream->reconnect());
    }
    if (!m_reconnector)
        return;
    // A stream that runs is watched from now on; one the reconnector brings back already is.
    if (m_reconnectCheck->isChecked() && state == State::Running &&
        m_reconnector->state() == StreamReconnector::State::Idle)
        m_reconnector->arm();
    m_reconnectLabel->setText(
        m_reconnector->state() == StreamReconnector::State::Waiting ? "waiting for the camera" : "");
}

void AtracsysTrackingController::onFramePacingChanged(int milliseconds) {
    if (m_stream)
        m_stream->setFramePacingMs(milliseconds);
}

void AtracsysTrackingController::onReconnectStateChanged(int checkState) {
    if (m_stream)
        m_stream->setReconnect(checkState == Qt::Checked); // saved with the workspace
    if (!m_reconnector)
        return;
    if (checkState != Qt::Checked)
        m_reconnector->disarm();
    updateGUI();
}

} // namespace Kestrion
