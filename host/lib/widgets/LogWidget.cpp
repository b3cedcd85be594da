#include "host/lib/widgets/LogWidget.h"

#include "host/core/Log.h"
#include "host/lib/widgets/LogFolding.h"
#include "host/lib/widgets/QtHelpers.h"
#include "host/lib/widgets/QueuedLogSink.h"

#include <QDateTime>
#include <QPlainTextEdit>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextCursor>
#include <QVBoxLayout>

namespace Kestrion {

namespace {

const char* colorOf(int level) {
    switch (level) {
    case Log::Trace:
    case Log::Debug:
        return "#808080";
    case Log::Warning:
        return "#b07000";
    case Log::Error:
    case Log::Fatal:
        return "#c00000";
    default:
        return "#000000";
    }
}

} // namespace

LogWidget::LogWidget(QWidget* parent)
    : QWidget(parent)
    , m_sink(std::make_shared<QueuedLogSink>())
    , m_view(new QPlainTextEdit(this)) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_view);
    m_view->setReadOnly(true);
    m_view->setMaximumBlockCount(5000);
    m_view->setLineWrapMode(QPlainTextEdit::NoWrap);
    m_view->setFont(QFont(QStringLiteral("monospace")));
    // The view follows the newest line until the user scrolls up, and again once they scroll back
    // to the bottom. Only the user's scrolling changes that (lines dropping off the top move the
    // bar too), and every change of the range (new lines, the first layout, a resize) honours it.
    QScrollBar* bar = m_view->verticalScrollBar();
    connect(bar, &QAbstractSlider::actionTriggered, this,
            [this, bar]() { m_follow = bar->sliderPosition() >= bar->maximum(); });
    connect(bar, &QAbstractSlider::rangeChanged, this, [this, bar]() {
        if (m_follow)
            bar->setValue(bar->maximum());
    });
    Log::addSink(m_sink);
    connect(&m_timer, &QTimer::timeout, this, &LogWidget::flush);
    m_timer.start(100);
}

LogWidget::~LogWidget() {
    // A record being written right now still reaches the sink (Log calls sinks on a snapshot),
    // which the shared pointer keeps alive; nobody takes it any more.
    Log::removeSink(m_sink);
}

void LogWidget::setMaximumLines(int lines) {
    m_view->setMaximumBlockCount(lines);
}

int LogWidget::maximumLines() const {
    return m_view->maximumBlockCount();
}

QString LogWidget::text() const {
    return m_empty ? QString() : m_view->toPlainText();
}

int LogWidget::lineCount() const {
    return m_empty ? 0 : m_view->document()->blockCount();
}

QString LogWidget::format(const LogRecord& record) {
    QString line = QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(record.timestampMs))
                       .toString(QStringLiteral("hh:mm:ss.zzz"));
    line += QLatin1Char(' ') + QString::fromLatin1(Log::levelName(record.level));
    if (!record.category.empty())
        line += QStringLiteral(" [") + QtHelpers::toQString(record.category) + QLatin1Char(']');
    return line + QLatin1Char(' ') + QtHelpers::toQString(record.message);
}

void LogWidget::flush() {
    QueuedLogSink::Batch batch = m_sink->take();
    if (batch.records.empty() && batch.dropped == 0)
        return;
    const auto html = [](const QString& text, const char* color) {
        return QStringLiteral("<span style=\"color:%1; white-space:pre\">%2</span>")
            .arg(QLatin1String(color), text.toHtmlEscaped());
    };
    const auto append = [this, &html](const QString& text, const char* color) {
        m_view->appendHtml(html(text, color));
        m_empty = false;
    };
    if (batch.dropped > 0) {
        append(tr("... %1 earlier log lines were not shown").arg(batch.dropped), colorOf(Log::Warning));
        m_lastKey.clear();
    }
    for (const LogRecord& record : batch.records) {
        std::string key = LogFolding::key(record);
        if (!m_empty && key == m_lastKey) {
            // The same line again: the last line shows the newest text and the count.
            ++m_lastRepeats;
            QTextCursor cursor(m_view->document());
            cursor.movePosition(QTextCursor::End);
            cursor.movePosition(QTextCursor::StartOfBlock, QTextCursor::KeepAnchor);
            cursor.removeSelectedText();
            cursor.insertHtml(
                html(format(record) + tr(" (%1 times)").arg(m_lastRepeats), colorOf(record.level)));
            continue;
        }
        append(format(record), colorOf(record.level));
        m_lastKey = std::move(key);
        m_lastRepeats = 1;
    }
    if (m_follow)
        m_view->verticalScrollBar()->setValue(m_view->verticalScrollBar()->maximum());
}

void LogWidget::clear() {
    m_view->clear();
    m_empty = true;
    m_lastKey.clear();
}

} // namespace Kestrion
