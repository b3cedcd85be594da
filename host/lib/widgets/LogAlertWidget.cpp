#include "host/lib/widgets/LogAlertWidget.h"

#include "host/core/Log.h"
#include "host/lib/widgets/LogFolding.h"
#include "host/lib/widgets/QueuedLogSink.h"

#include <QHBoxLayout>
#include <QToolButton>

#include <algorithm>

namespace Kestrion {

LogAlertWidget::LogAlertWidget(QWidget* parent)
    : QWidget(parent)
    , m_sink(std::make_shared<QueuedLogSink>(1000))
    , m_button(new QToolButton(this)) {
    setObjectName(QStringLiteral("LogAlert"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_button);
    m_button->setAutoRaise(true);
    m_button->hide();
    connect(m_button, &QToolButton::clicked, this, [this]() {
        markRead();
        emit showLogRequested();
    });
    Log::addSink(m_sink);
    connect(&m_timer, &QTimer::timeout, this, &LogAlertWidget::flush);
    m_timer.start(200);
}

LogAlertWidget::~LogAlertWidget() {
    Log::removeSink(m_sink);
}

QString LogAlertWidget::text() const {
    return m_button->isHidden() ? QString() : m_button->toolTip(); // the whole line; the button may elide it
}

void LogAlertWidget::flush() {
    QueuedLogSink::Batch batch = m_sink->take();
    bool changed = false;
    for (const LogRecord& record : batch.records) {
        if (record.level < Log::Warning)
            continue;
        Alert alert;
        alert.key = LogFolding::key(record);
        alert.category = QString::fromStdString(record.category);
        alert.error = record.level >= Log::Error;
        // The time stamp is left out: the log view has it.
        alert.line = QString::fromLatin1(Log::levelName(record.level));
        if (!record.category.empty())
            alert.line += QStringLiteral(" [") + alert.category + QLatin1Char(']');
        alert.line += QLatin1Char(' ') + QString::fromStdString(record.message);
        for (auto it = m_alerts.begin(); it != m_alerts.end(); ++it)
            if (it->key == alert.key) {
                alert.repeats = it->repeats + 1;
                m_alerts.erase(it);
                break;
            }
        m_alerts.push_back(std::move(alert));
        changed = true;
    }
    if (changed)
        showAlerts();
}

void LogAlertWidget::showAlerts() {
    if (m_alerts.empty()) {
        m_button->hide();
        m_button->setText(QString());
        return;
    }
    const Alert& newest = m_alerts.back();
    QString line = newest.line;
    if (newest.repeats > 1)
        line += tr(" (%1 times)").arg(newest.repeats);
    if (m_alerts.size() > 1)
        line += tr(" (+%1 more)").arg(m_alerts.size() - 1);
    bool error = false;
    for (const Alert& alert : m_alerts)
        error = error || alert.error;
    m_button->setToolTip(line);
    m_button->setText(m_button->fontMetrics().elidedText(line, Qt::ElideMiddle, 700));
    m_button->setStyleSheet(error ? QStringLiteral("color: #c00000; font-weight: bold")
                                  : QStringLiteral("color: #b07000; font-weight: bold"));
    m_button->show();
}

void LogAlertWidget::markRead() {
    m_alerts.clear();
    showAlerts();
}

void LogAlertWidget::resolve(const QString& category) {
    flush(); // alerts logged before the cause went count as resolved too
    const auto before = m_alerts.size();
    m_alerts.erase(std::remove_if(m_alerts.begin(), m_alerts.end(),
                                  [&category](const Alert& alert) { return alert.category == category; }),
                   m_alerts.end());
    if (m_alerts.size() != before)
        showAlerts();
}

} // namespace Kestrion
