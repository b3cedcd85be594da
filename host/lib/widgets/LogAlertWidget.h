#pragma once

#include <QTimer>
#include <QWidget>

#include <memory>
#include <string>
#include <vector>

class QToolButton;

namespace Kestrion {

class QueuedLogSink;

/// The warnings and errors of the log, in the status bar until the user has read them: the
/// newest one ("ERROR [Category] message"), how often it came in a row when it repeats
/// ("(65 times)", LogFolding) and how many other ones came since the last reading ("(+2 more)"),
/// amber for warnings, red while an error is among them. A click marks them read, hides the
/// alert and asks for the log to be shown (showLogRequested); the part of the system that
/// raised alerts withdraws them once their cause is gone (resolve()). Records arrive from any
/// thread through a queued sink; the GUI thread takes them every 200 ms (or at flush()).
class LogAlertWidget : public QWidget {
    Q_OBJECT
public:
    explicit LogAlertWidget(QWidget* parent = nullptr);
    ~LogAlertWidget() override;

    /// Warnings and errors not read yet (a repeated one counts once).
    int unread() const { return static_cast<int>(m_alerts.size()); }
    /// The alert shown ("" when everything was read).
    QString text() const;

public slots:
    void flush();
    void markRead();
    /// Withdraws the unread alerts of a log category whose cause is gone (a workspace saved after
    /// a failed save, instruments loaded after "Instruments empty!").
    void resolve(const QString& category);

signals:
    void showLogRequested();

private:
    struct Alert {
        std::string key; // LogFolding
        QString category;
        bool error = false;
        QString line;
        int repeats = 1;
    };
    void showAlerts();

    std::shared_ptr<QueuedLogSink> m_sink;
    QToolButton* m_button;
    QTimer m_timer;
    /// Unread alerts, one per fold key, the newest last.
    std::vector<Alert> m_alerts;
};

} // namespace Kestrion
