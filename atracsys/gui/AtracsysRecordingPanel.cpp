#include "atracsys/gui/AtracsysRecordingPanel.h"

#include "atracsys/stream/AtracsysTrackingStream.h"
#include "host/core/Log.h"
#include "host/core/Time.h"
#include "host/lib/widgets/QtHelpers.h"

#include <QCheckBox>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QGridLayout>
#include <QLabel>
#include <QPushButton>
#include <QtConcurrent>

namespace Kestrion {

namespace {

constexpr const char* Category = "AtracsysRecordingPanel";
/// Often enough for the elapsed time to be read as it goes.
constexpr int RefreshMs = 500;
using State = RecordingStatus::State;

QString fileName(const std::string& path) {
    return QFileInfo(QString::fromStdString(path)).fileName();
}

/// "00:01:12": the time a recording has run.
QString clock(std::uint64_t microseconds) {
    const std::uint64_t seconds = microseconds / 1000000;
    return QStringLiteral("%1:%2:%3")
        .arg(seconds / 3600, 2, 10, QLatin1Char('0'))
        .arg((seconds / 60) % 60, 2, 10, QLatin1Char('0'))
        .arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

} // namespace

AtracsysRecordingPanel::AtracsysRecordingPanel(SpryTrack::AtracsysTrackingStream& stream, QWidget* parent)
    : QGroupBox(QStringLiteral("Recording"), parent)
    , m_stream(stream)
    , m_recordButton(new QPushButton(QStringLiteral("Record..."), this))
    , m_imagesCheck(new QCheckBox(QStringLiteral("with images"), this))
    , m_indicator(new QLabel(this)) {
    setObjectName(QStringLiteral("recordingPanel"));
    auto* layout = new QGridLayout(this);
    layout->addWidget(m_recordButton, 0, 0);
    layout->addWidget(m_imagesCheck, 0, 1);
    layout->addWidget(m_indicator, 1, 0, 1, 2);
    m_indicator->setObjectName(QStringLiteral("recordingIndicator"));
    m_indicator->setWordWrap(true);
    m_indicator->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_imagesCheck->setToolTip(QStringLiteral("Record both camera images too (lossless, about 0.9 GB a "
                                             "minute); needs \"Show images\""));
    connect(m_recordButton, &QPushButton::clicked, this, &AtracsysRecordingPanel::onRecordClicked);
    connect(&m_starting, &QFutureWatcher<bool>::finished, this, &AtracsysRecordingPanel::refresh);
    connect(&m_timer, &QTimer::timeout, this, &AtracsysRecordingPanel::refresh);
    m_timer.start(RefreshMs);
    refresh();
}

AtracsysRecordingPanel::~AtracsysRecordingPanel() {
    // The start uses the stream and this panel's watcher: it ends before they may go.
    m_starting.waitForFinished();
}

bool AtracsysRecordingPanel::recordingRuns() const {
    const std::optional<RecordingStatus> status = m_stream.recordingStatus();
    return !m_pendingFile.isEmpty() ||
           (status && (status->state == State::Recording || status->state == State::Waiting));
}

void AtracsysRecordingPanel::onRecordClicked() {
    if (m_starting.isRunning())
        return;
    if (recordingRuns()) {
        m_pendingFile.clear();
        m_stream.stopRecording(); // the writer completes the file on its own thread
        refresh();
        return;
    }
    const QString folder = m_startFolder ? m_startFolder() : QString();
    const QString proposed =
        QStringLiteral("session-") + QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    const std::string chosen = QtHelpers::getSaveFilename(
        "Record the session to", "krec",
        QtHelpers::toStdString(folder.isEmpty() ? proposed : QDir(folder).filePath(proposed)), false);
    if (chosen.empty())
        return;
    start(QString::fromStdString(chosen));
}

void AtracsysRecordingPanel::start(const QString& file) {
    m_refusal.clear();
    if (QFileInfo::exists(file)) {
        // A recording never replaces a file: the user's earlier session may be in it.
        m_refusal = QStringLiteral("Not recording: %1 exists; choose another name").arg(file);
        KESTRION_LOG_WARN(Category, QtHelpers::toStdString(m_refusal));
        refresh();
        return;
    }
    const bool images = m_imagesCheck->isChecked() && m_stream.queryImages();
    if (!m_stream.isStateOneOf({Stream::State::Starting, Stream::State::Running}))
        m_pendingFile = file; // the stream records from its start
    SpryTrack::AtracsysTrackingStream* stream = &m_stream;
    const std::string path = QtHelpers::toStdString(file);
    m_starting.setFuture(
        QtConcurrent::run([stream, path, images] { return stream->recordTo(path, images); }));
    refresh();
}

void AtracsysRecordingPanel::refresh() {
    const std::optional<RecordingStatus> status = m_stream.recordingStatus();
    // The file asked for before the start is recorded once the stream's status names it.
    if (!m_pendingFile.isEmpty() && status && QString::fromStdString(status->file) == m_pendingFile)
        m_pendingFile.clear();
    const bool runs = recordingRuns();
    m_recordButton->setEnabled(!m_starting.isRunning());
    m_recordButton->setText(m_starting.isRunning() ? QStringLiteral("Starting...")
                            : runs                 ? QStringLiteral("Stop recording")
                                                   : QStringLiteral("Record..."));
    m_imagesCheck->setEnabled(!runs && m_stream.queryImages());
    QString text;
    if (!m_refusal.isEmpty())
        text = m_refusal;
    else if (!m_pendingFile.isEmpty())
        text = QStringLiteral("Records to %1 when tracking starts").arg(QFileInfo(m_pendingFile).fileName());
    else
        text = describe(status, Time::utcMilliseconds() * 1000);
    m_indicator->setText(text);
    const bool live = status && status->state == State::Recording && m_pendingFile.isEmpty();
    m_indicator->setStyleSheet(live ? QStringLiteral("color: #b00000; font-weight: bold") : QString());
}

QString AtracsysRecordingPanel::describe(const std::optional<RecordingStatus>& status, std::uint64_t nowUS) {
    if (!status)
        return QStringLiteral("Not recording");
    const QString name = fileName(status->file);
    const QString figures = QStringLiteral("%1 frames, %2, %3 dropped")
                                .arg(status->frames)
                                .arg(size(status->bytes))
                                .arg(status->dropped);
    const std::uint64_t elapsed = nowUS > status->startedUS ? nowUS - status->startedUS : 0;
    switch (status->state) {
    case State::Recording:
        return QStringLiteral("\u25CF Recording %1: %2, %3").arg(name, clock(elapsed), figures);
    case State::Waiting:
        return QStringLiteral("Recording %1 waits for the camera: %2, %3").arg(name, clock(elapsed), figures);
    case State::Complete:
        return QStringLiteral("Recorded %1: %2").arg(fileName(status->writtenFile), figures);
    case State::CutShort:
        return QStringLiteral("Recording %1 cut short after %2 frames: %3")
            .arg(name)
            .arg(status->frames)
            .arg(QString::fromStdString(status->reason));
    }
    return {};
}

QString AtracsysRecordingPanel::size(std::uint64_t bytes) {
    if (bytes < 1000)
        return QStringLiteral("%1 B").arg(bytes);
    if (bytes < 1000 * 1000)
        return QStringLiteral("%1 kB").arg(double(bytes) / 1e3, 0, 'f', 0);
    if (bytes < 1000ull * 1000 * 1000)
        return QStringLiteral("%1 MB").arg(double(bytes) / 1e6, 0, 'f', 1);
    return QStringLiteral("%1 GB").arg(double(bytes) / 1e9, 0, 'f', 2);
}

} // namespace Kestrion
