#pragma once

#include <QTimer>
#include <QWidget>

#include <memory>
#include <string>

class QPlainTextEdit;

namespace Kestrion {

struct LogRecord;
class QueuedLogSink;

/// Shows the host's log: every accepted record, as "hh:mm:ss.zzz LEVEL [Category] message",
/// coloured by level, the newest at the bottom, at most maximumLines() lines. A record that
/// repeats the line before (LogFolding) replaces it, with the count: "... (65 times)". It follows the
/// newest line unless the user scrolled up. While the widget
/// exists its sink receives every record from any thread; the GUI thread takes them in batches
/// (a timer, every 100 ms, or flush()).
class LogWidget : public QWidget {
    Q_OBJECT
public:
    explicit LogWidget(QWidget* parent = nullptr);
    ~LogWidget() override;

    void setMaximumLines(int lines);
    int maximumLines() const;
    /// The lines shown, as plain text.
    QString text() const;
    int lineCount() const;

    /// The text shown for a record.
    static QString format(const LogRecord& record);

public slots:
    /// Shows the records logged since the last flush.
    void flush();
    void clear();

private:
    std::shared_ptr<QueuedLogSink> m_sink;
    QPlainTextEdit* m_view;
    QTimer m_timer;
    bool m_empty = true;
    bool m_follow = true;
    /// The fold key of the last line and how many records it stands for.
    std::string m_lastKey;
    int m_lastRepeats = 0;
};

} // namespace Kestrion
