#include "host/lib/widgets/LogAlertWidget.h"

#include "host/core/Log.h"
#include "host/lib/widgets/QueuedLogSink.h"

#include <QHBoxLayout>
#include <QToolButton>

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
    return m_button->isHidden() ? QString() : m_button->text();
}

void LogAlertWidget::flush() {
    QueuedLogSink::Batch batch = m_sink->take();
    const LogRecord* newest = nullptr;
    for (const LogRecord& record : batch.records)
        if (record.level >= Log::Warning) {
            newest = &record;
            ++m_unread;
            m_error = m_error || record.level >= Log::Error;
        }
    if (!newest)
        return;
    // The time stamp is left out: the log view has it.
    QString line = QString::fromLatin1(Log::levelName(newest->level));
    if (!newest->category.empty())
        line += QStringLiteral(" [") + QString::fromStdString(newest->category) + QLatin1Char(']');
    line += QLatin1Char(' ') + QString::fromStdString(newest->message);
    if (m_unread > 1)
        line += tr(" (+%1 more)").arg(m_unread - 1);
    m_button->setToolTip(line);
    m_button->setText(m_button->fontMetrics().elidedText(line, Qt::ElideMiddle, 700));
    m_button->setStyleSheet(m_error ? QStringLiteral("color: #c00000; font-weight: bold")
                                    : QStringLiteral("color: #b07000; font-weight: bold"));
    m_button->show();
}

void LogAlertWidget::markRead() {
    m_unread = 0;
    m_error = false;
    m_button->hide();
    m_button->setText(QString());
}

} // namespace Kestrion
