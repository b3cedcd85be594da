#pragma once

#include "host/core/Progress.h"

#include <QWidget>

#include <atomic>
#include <memory>
#include <vector>

class QLabel;
class QProgressBar;
class QPushButton;
class QVBoxLayout;

namespace Kestrion {

/// The desktop host's display of long work: one row per running task with its description, a
/// progress bar (a busy bar when the number of steps is unknown) and a Cancel button that asks
/// the task to stop. Tasks are added and updated from any thread (Progress); the rows follow on
/// the GUI thread, through one queued refresh however many updates came meanwhile. The widget
/// hides itself while no task runs.
class ProgressWidget : public QWidget, public Progress {
    Q_OBJECT
public:
    explicit ProgressWidget(QWidget* parent = nullptr);
    ~ProgressWidget() override;

    /// The rows shown (after the last refresh), oldest task first.
    int rowCount() const { return static_cast<int>(m_rows.size()); }
    QLabel* descriptionLabel(int row) const;
    QProgressBar* progressBar(int row) const;
    QPushButton* cancelButton(int row) const;

public slots:
    /// Brings the rows in line with the tasks (GUI thread; queued by the task notifications).
    void refresh();

protected:
    void taskAdded(const std::shared_ptr<ProgressTaskState>& task) override;
    void taskChanged(const std::shared_ptr<ProgressTaskState>& task) override;
    void taskFinished(const std::shared_ptr<ProgressTaskState>& task) override;

private:
    struct Row {
        std::shared_ptr<ProgressTaskState> task;
        QWidget* widget = nullptr;
        QLabel* label = nullptr;
        QProgressBar* bar = nullptr;
        QPushButton* cancel = nullptr;
    };

    /// Called on the worker's thread: queues one refresh unless one is pending.
    void requestRefresh();
    Row makeRow(const std::shared_ptr<ProgressTaskState>& task);
    static void updateRow(const Row& row);

    QVBoxLayout* m_layout;
    std::vector<Row> m_rows;                  // GUI thread only
    std::atomic<bool> m_refreshQueued{false}; // set by workers, cleared by the GUI thread
};

} // namespace Kestrion
