#include "atracsys/gui/AtracsysPivotCalibrationPanel.h"

#include "atracsys/calibration/AtracsysPivotFile.h"
#include "atracsys/gui/AtracsysToolTipSaver.h"
#include "atracsys/stream/AtracsysTrackingStreamBase.h"
#include "host/calibration/PivotRecording.h"

#include "host/core/Log.h"
#include "host/core/Properties.h"
#include "host/stream/CompoundStreamData.h"
#include "host/stream/TrackingStreamData.h"

#include <QGridLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>

#include <iomanip>
#include <sstream>

namespace Kestrion {

namespace {

constexpr const char* Category = "AtracsysMarkersWidget";

std::string point(const Eigen::Vector3d& p) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(2) << p.x() << ", " << p.y() << ", " << p.z() << " mm";
    return text.str();
}

} // namespace

AtracsysPivotCalibrationPanel::AtracsysPivotCalibrationPanel(AtracsysTrackingStreamBase* stream,
                                                             QWidget* parent)
    : QWidget(parent)
    , m_stream(stream)
    , m_start(new QPushButton(QStringLiteral("Pivot calibration"), this))
    , m_progress(new QProgressBar(this))
    , m_cancel(new QPushButton(QStringLiteral("Cancel"), this))
    , m_resultLabel(new QLabel(this))
    , m_save(new QPushButton(QStringLiteral("Save tip..."), this)) {
    setObjectName(QStringLiteral("pivotCalibrationPanel"));
    m_start->setObjectName(QStringLiteral("pivotCalibrationButton"));
    m_start->setToolTip(QStringLiteral("Find the tip of the first active tool: rest its tip in a divot and "
                                       "tilt it around it in every direction"));
    m_progress->setObjectName(QStringLiteral("pivotProgress"));
    m_cancel->setObjectName(QStringLiteral("pivotCancelButton"));
    m_resultLabel->setObjectName(QStringLiteral("pivotResultLabel"));
    m_resultLabel->setWordWrap(true);
    m_resultLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_save->setObjectName(QStringLiteral("pivotSaveButton"));

    auto* layout = new QGridLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_start, 0, 0);
    layout->addWidget(m_save, 0, 1);
    layout->addWidget(m_progress, 1, 0);
    layout->addWidget(m_cancel, 1, 1);
    layout->addWidget(m_resultLabel, 2, 0, 1, 2);

    connect(m_start, &QPushButton::clicked, this, &AtracsysPivotCalibrationPanel::onStart);
    connect(m_cancel, &QPushButton::clicked, this, &AtracsysPivotCalibrationPanel::onCancel);
    connect(m_save, &QPushButton::clicked, this, &AtracsysPivotCalibrationPanel::onSave);
    m_timer.setInterval(100);
    connect(&m_timer, &QTimer::timeout, this, &AtracsysPivotCalibrationPanel::poll);
    showIdle();
    m_save->setEnabled(false);
}

AtracsysPivotCalibrationPanel::~AtracsysPivotCalibrationPanel() {
    m_connection.disconnect();
    disconnectAllSignals();
}

bool AtracsysPivotCalibrationPanel::isRecording() const {
    return m_recording && m_recording->isRecording();
}

void AtracsysPivotCalibrationPanel::showIdle() {
    m_start->setEnabled(m_stream != nullptr);
    m_progress->setVisible(false);
    m_cancel->setVisible(false);
}

void AtracsysPivotCalibrationPanel::onStart() {
    if (!m_stream || isRecording())
        return;
    if (m_stream->fiducialQueryMode() != AtracsysTrackingStreamBase::MarkerFiducials)
        KESTRION_LOG_INFO(Category, "Fiducial query mode changed to MARKER for pivot calibration");
    m_stream->setFiducialQueryMode(AtracsysTrackingStreamBase::MarkerFiducials);
    // Waiting blocks the GUI thread for the transition, as the other geometry actions do.
    if ((!m_stream->isInitialized() && !m_stream->openAsync().get()) ||
        (!m_stream->isStateOneOf({Stream::State::Starting, Stream::State::Running}) &&
         !m_stream->startAsync().get()))
        return;
    m_instrumentId.clear();
    for (const TrackingInstrument& instrument : m_stream->instruments())
        if (instrument.active) {
            m_instrumentId = instrument.ID();
            break;
        }
    if (m_instrumentId.empty()) {
        KESTRION_LOG_WARN(Category, "No active tracker for pivot calibration.");
        return;
    }
    KESTRION_LOG_INFO(Category, "Run pivot calibration on tracker " << m_instrumentId);

    m_result.reset();
    m_recording = std::make_shared<PivotRecording>(
        m_instrumentId, m_stream->geometryCoordinates(m_instrumentId).size(), m_frames);
    m_recording->start();
    // The worker's slot keeps the recording alive until the connection has ended.
    m_connection = m_stream->signalStreamData.connect(
        this, [recording = m_recording](const std::shared_ptr<const StreamData>& data) {
            if (const auto tracking = findStreamData<TrackingStreamData>(data))
                recording->add(*tracking);
        });
    m_start->setEnabled(false);
    m_save->setEnabled(false);
    m_progress->setRange(0, static_cast<int>(m_frames));
    m_progress->setValue(0);
    m_progress->setVisible(true);
    m_cancel->setVisible(true);
    m_resultLabel->setText(QString::fromStdString("Recording " + m_instrumentId +
                                                  ": pivot the tool about its tip in every direction."));
    m_timer.start();
}

void AtracsysPivotCalibrationPanel::poll() {
    if (!m_recording)
        return;
    m_progress->setValue(static_cast<int>(m_recording->acceptedFrames()));
    if (!m_recording->isRecording())
        finish();
}

void AtracsysPivotCalibrationPanel::finish() {
    m_timer.stop();
    m_connection.disconnect();
    showIdle();
    // A tenth of a millisecond for 500 frames: solved here, on the GUI thread.
    m_result = PivotCalibration().solve(m_recording->poses());
    const PivotCalibration::Result& r = *m_result;
    std::ostringstream text;
    if (!r.solved()) {
        text << "No tip found: " << r.refusal << ".";
    } else {
        text << "Tip in the marker's frame: " << point(r.tipInMarker) << "\n"
             << "Pivot point (camera frame): " << point(r.pivotInCamera) << "\n"
             << "RMS residual: " << std::fixed << std::setprecision(3) << r.rmsMM
             << " mm; frames: " << r.usedFrames << " used, " << r.rejectedFrames
             << " rejected; angular spread: " << std::setprecision(1) << r.spreadDeg << " degrees";
        KESTRION_LOG_INFO(Category, "Pivot calibration of " << m_instrumentId << ": tip "
                                                            << point(r.tipInMarker) << ", RMS residual "
                                                            << std::fixed << std::setprecision(3) << r.rmsMM
                                                            << " mm");
    }
    m_resultLabel->setText(QString::fromStdString(text.str()));
    m_save->setEnabled(r.solved());
}

void AtracsysPivotCalibrationPanel::onCancel() {
    if (!m_recording)
        return;
    m_recording->stop();
    m_timer.stop();
    m_connection.disconnect();
    m_result.reset();
    showIdle();
    m_save->setEnabled(false);
    m_resultLabel->setText(QStringLiteral("Pivot calibration cancelled."));
}

std::string AtracsysPivotCalibrationPanel::geometryPath(const AtracsysTrackingStreamBase& stream,
                                                        const std::string& instrumentId) {
    std::string name;
    for (const TrackingInstrument& instrument : stream.instruments())
        if (instrument.ID() == instrumentId)
            name = instrument.id.name;
    Properties settings;
    static_cast<const Configurable&>(stream).configuration(&settings);
    const Properties* targets = settings.subProperty("TrackingTargets");
    const Properties* target = targets && !name.empty() ? targets->subProperty(name) : nullptr;
    return target ? target->param("Path", std::string()) : std::string();
}

void AtracsysPivotCalibrationPanel::onSave() {
    if (!m_stream || !m_result || !m_result->solved())
        return;
    const AtracsysToolTipSaver::Outcome outcome = AtracsysToolTipSaver::save(
        *m_stream, m_instrumentId, m_result->tipInMarker, AtracsysToolTipSaver::workspaceFolder(this));
    if (outcome.kind == AtracsysToolTipSaver::Outcome::Kind::Cancelled)
        return; // nothing written
    const bool saved = outcome.kind == AtracsysToolTipSaver::Outcome::Kind::Saved;
    m_resultLabel->setText(
        m_resultLabel->text().section(QLatin1Char('\n'), 0, 2) + QLatin1Char('\n') +
        QString::fromStdString(saved ? "Tip saved to " + outcome.file + "; the tool tracks it now."
                                     : "The tip was not saved: " + outcome.error));
    m_save->setEnabled(!saved);
}

} // namespace Kestrion
