#include "host/lib/trackingviews/StreamHealthView.h"

#include "host/stream/TrackingStream.h"

#include <QFormLayout>
#include <QLabel>
#include <QtConcurrent>

#include <chrono>

namespace Kestrion {

namespace {
/// Often enough for the time since the last frame to be read as it goes.
constexpr int RefreshMs = 500;
/// The device's own values change slowly (a temperature), and reading them is a control call.
constexpr int DeviceReadMs = 1000;
const char* const Fields[] = {"State",      "Frame rate",    "Frames",
                              "Outages",    "Reconnections", "Since last frame",
                              "Last error", "Temperature",   "Camera values"};

QString shown(const DeviceReading& reading) {
    QString text = QString::fromStdString(reading.value);
    if (!reading.unit.empty())
        text += QLatin1Char(' ') + QString::fromStdString(reading.unit);
    return text;
}
} // namespace

StreamHealthView::StreamHealthView(QWidget* parent)
    : QWidget(parent)
    , m_form(new QFormLayout(this)) {
    setObjectName(QStringLiteral("StreamHealthView"));
    for (const char* name : Fields)
        addField(tr(name));
    connect(&m_timer, &QTimer::timeout, this, &StreamHealthView::refresh);
    m_timer.start(RefreshMs); // also while hidden: the status bar's summary follows it
    connect(&m_reading, &QFutureWatcher<std::vector<DeviceReading>>::finished, this, [this] {
        // The end of a read may be announced after the view moved to another stream.
        if (m_readFor != m_stream || m_reading.future().resultCount() == 0)
            return;
        m_readings = m_reading.result();
        refresh();
    });
    connect(&m_deviceTimer, &QTimer::timeout, this, &StreamHealthView::readDevice);
    m_deviceTimer.start(DeviceReadMs);
    refresh();
}

StreamHealthView::~StreamHealthView() {
    // The read uses the stream: it ends before the stream may go.
    m_reading.waitForFinished();
}

void StreamHealthView::readDevice() {
    const auto* tracking = dynamic_cast<const TrackingStream*>(m_stream);
    if (!tracking || m_reading.isRunning())
        return;
    m_readFor = m_stream;
    m_reading.setFuture(QtConcurrent::run([tracking] { return tracking->readDevice(); }));
}

QLabel* StreamHealthView::addField(const QString& name) {
    auto* value = new QLabel(this);
    value->setTextInteractionFlags(Qt::TextSelectableByMouse);
    value->setWordWrap(true);
    m_form->addRow(name + QLatin1Char(':'), value);
    m_fields.emplace_back(name, value);
    return value;
}

void StreamHealthView::setStream(const Stream* stream) {
    // A read of the stream let go ends first; its values are not this stream's.
    m_reading.waitForFinished();
    m_readings.clear();
    m_stream = stream;
    readDevice();
    refresh();
}

QString StreamHealthView::toolTip(const QString& name) const {
    for (const auto& entry : m_fields)
        if (entry.first == name)
            return entry.second->toolTip();
    return {};
}

QString StreamHealthView::field(const QString& name) const {
    for (const auto& entry : m_fields)
        if (entry.first == name)
            return entry.second->text();
    return {};
}

void StreamHealthView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    refresh();
}

void StreamHealthView::refresh() {
    QString summary;
    bool alarming = false;
    if (!m_stream) {
        for (auto& entry : m_fields)
            entry.second->clear();
        m_fields[0].second->setText(tr("no stream"));
        summary = QString();
    } else {
        const StreamCondition condition = StreamCondition::of(*m_stream);
        QString temperature;
        QStringList others;
        QStringList settings;
        for (const DeviceReading& reading : m_readings) {
            const QString line = QString::fromStdString(reading.name) + QStringLiteral(": ") + shown(reading);
            if (reading.kind == DeviceReading::Kind::Temperature)
                temperature += (temperature.isEmpty() ? QString() : QStringLiteral(", ")) + shown(reading);
            else if (reading.kind == DeviceReading::Kind::Measurement)
                others << line;
            else
                settings << line;
        }
        // The settings in force are no health figures: at hand, without filling the panel.
        m_fields.back().second->setToolTip(
            settings.isEmpty() ? QString() : tr("Settings in force:\n") + settings.join('\n'));
        const StreamHealth::Snapshot& health = condition.health;
        const double periodS = std::chrono::duration<double>(health.dataPeriod).count();
        const QString rate = periodS > 0.0 ? tr("%1 Hz").arg(1.0 / periodS, 0, 'f', 1) : tr("-");
        const QString state = QString::fromLatin1(StreamHealth::stateName(health.state));
        alarming =
            health.state == StreamHealth::State::NotDelivering || health.state == StreamHealth::State::Ended;
        const QString values[] = {
            health.state == StreamHealth::State::Stopped
                ? tr("%1 (%2)").arg(state, QString::fromLatin1(Stream::stateName(m_stream->currentState())))
                : state,
            condition.current ? rate : tr("-"),
            QString::number(health.dataItems),
            health.outages == 0
                ? tr("none")
                : tr("%1, %2 in all").arg(health.outages).arg(StreamCondition::duration(health.outageTime)),
            QString::number(health.reopenings),
            health.sinceLastData ? StreamCondition::duration(*health.sinceLastData) : tr("no frame yet"),
            QString::fromStdString(!health.lastError.empty() ? health.lastError : health.endReason),
            temperature.isEmpty() ? tr("-") : temperature,
            others.join(QLatin1Char('\n'))};
        for (std::size_t i = 0; i < m_fields.size(); ++i)
            m_fields[i].second->setText(values[i]);
        m_fields[0].second->setStyleSheet(
            alarming ? QStringLiteral("color: white; background: #b00000; font-weight: bold") : QString());
        summary = condition.current
                      ? tr("%1: delivering, %2").arg(QString::fromStdString(m_stream->name()), rate)
                      : QString::fromStdString(m_stream->name()) + QStringLiteral(": ") + condition.reason +
                            (health.sinceLastData && alarming
                                 ? tr(" for %1").arg(StreamCondition::duration(*health.sinceLastData))
                                 : QString());
    }
    if (summary != m_summary || alarming != m_alarming) {
        m_summary = summary;
        m_alarming = alarming;
        emit summaryChanged(m_summary, m_alarming);
    }
}

} // namespace Kestrion
