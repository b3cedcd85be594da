#include "host/lib/trackingviews/StreamHealthView.h"

#include "host/stream/Stream.h"

#include <QFormLayout>
#include <QLabel>

#include <chrono>

namespace Kestrion {

namespace {
/// Often enough for the time since the last frame to be read as it goes.
constexpr int RefreshMs = 500;
const char* const Fields[] = {"State",         "Frame rate",       "Frames",    "Outages",
                              "Reconnections", "Since last frame", "Last error"};
} // namespace

StreamHealthView::StreamHealthView(QWidget* parent)
    : QWidget(parent)
    , m_form(new QFormLayout(this)) {
    setObjectName(QStringLiteral("StreamHealthView"));
    for (const char* name : Fields)
        addField(tr(name));
    connect(&m_timer, &QTimer::timeout, this, &StreamHealthView::refresh);
    m_timer.start(RefreshMs); // also while hidden: the status bar's summary follows it
    refresh();
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
    m_stream = stream;
    refresh();
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
            QString::fromStdString(!health.lastError.empty() ? health.lastError : health.endReason)};
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
