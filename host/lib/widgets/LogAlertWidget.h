#pragma once

#include <QTimer>
#include <QWidget>

#include <memory>

class QToolButton;

namespace Kestrion {

class QueuedLogSink;

/// The warnings and errors of the log, in the status bar until the user has read them: the
/// newest one ("ERROR [Category] message") and how many came since the last reading, amber for
/// warnings, red once an error came. A click marks them read, hides the alert and asks for the
/// log to be shown (showLogRequested). Records arrive from any thread through a queued sink; the
/// GUI thread takes them every 200 ms (or at flush()).
class LogAlertWidget : public QWidget {
    Q_OBJECT
public:
    explicit LogAlertWidget(QWidget* parent = nullptr);
    ~LogAlertWidget() override;

    /// Warnings and errors not read yet.
    int unread() const { return m_unread; }
    /// The alert shown ("" when everything was read).
    QString text() const;

public slots:
    void flush();
    void markRead();

signals:
    void showLogRequested();

private:
    std::shared_ptr<QueuedLogSink> m_sink;
    QToolButton* m_button;
    QTimer m_timer;
    int m_unread = 0;
    bool m_error = false;
};

} // namespace Kestrion
