#include "host/lib/widgets/ProgressWidget.h"

#include "host/lib/widgets/QtHelpers.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>

namespace Kestrion {

ProgressWidget::ProgressWidget(QWidget* parent)
    : QWidget(parent)
    , m_layout(new QVBoxLayout(this)) {
    m_layout->setContentsMargins(0, 0, 0, 0);
    m_layout->setSpacing(2);
    setVisible(false);
}

ProgressWidget::~ProgressWidget() {
    // After this no notification runs or starts, so none can queue a call to a dying object;
    // calls already queued are dropped by Qt with the object.
    detachTasks();
}

QLabel* ProgressWidget::descriptionLabel(int row) const {
    return row >= 0 && row < rowCount() ? m_rows[static_cast<std::size_t>(row)].label : nullptr;
}

QProgressBar* ProgressWidget::progressBar(int row) const {
    return row >= 0 && row < rowCount() ? m_rows[static_cast<std::size_t>(row)].bar : nullptr;
}

QPushButton* ProgressWidget::cancelButton(int row) const {
    return row >= 0 && row < rowCount() ? m_rows[static_cast<std::size_t>(row)].cancel : nullptr;
}

void ProgressWidget::taskAdded(const std::shared_ptr<ProgressTaskState>&) {
    requestRefresh();
}

void ProgressWidget::taskChanged(const std::shared_ptr<ProgressTaskState>&) {
    requestRefresh();
}

void ProgressWidget::taskFinished(const std::shared_ptr<ProgressTaskState>&) {
    requestRefresh();
}

void ProgressWidget::requestRefresh() {
    // Progress runs notifications one at a time and detachTasks() waits for a running one, so
    // `this` is alive here; posting an event is safe from any thread.
    if (!m_refreshQueued.exchange(true))
        QMetaObject::invokeMethod(this, "refresh", Qt::QueuedConnection);
}

ProgressWidget::Row ProgressWidget::makeRow(const std::shared_ptr<ProgressTaskState>& task) {
    Row row;
    row.task = task;
    row.widget = new QWidget(this);
    auto* layout = new QHBoxLayout(row.widget);
    layout->setContentsMargins(0, 0, 0, 0);
    row.label = new QLabel(row.widget);
    row.bar = new QProgressBar(row.widget);
    row.bar->setMinimumWidth(160);
    row.cancel = new QPushButton(tr("Cancel"), row.widget);
    layout->addWidget(row.label);
    layout->addWidget(row.bar, 1);
    layout->addWidget(row.cancel);
    std::weak_ptr<ProgressTaskState> weak = task;
    connect(row.cancel, &QPushButton::clicked, this, [this, weak]() {
        if (auto state = weak.lock()) {
            state->cancel();
            refresh();
        }
    });
    m_layout->addWidget(row.widget);
    return row;
}

void ProgressWidget::updateRow(const Row& row) {
    const ProgressTaskState& task = *row.task;
    row.label->setText(QtHelpers::toQString(task.description()));
    if (task.steps() > 0) {
        row.bar->setRange(0, task.steps());
        row.bar->setValue(std::clamp(task.done(), 0, task.steps()));
    } else {
        row.bar->setRange(0, 0); // busy indicator
    }
    if (task.isCanceled()) {
        row.cancel->setEnabled(false);
        row.cancel->setText(tr("Canceling..."));
    }
}

void ProgressWidget::refresh() {
    m_refreshQueued.store(false); // updates from now on queue a new refresh
    const std::vector<std::shared_ptr<ProgressTaskState>> current = tasks();
    for (auto it = m_rows.begin(); it != m_rows.end();) {
        if (std::find(current.begin(), current.end(), it->task) == current.end()) {
            delete it->widget;
            it = m_rows.erase(it);
        } else {
            ++it;
        }
    }
    for (const auto& task : current) {
        auto it =
            std::find_if(m_rows.begin(), m_rows.end(), [&](const Row& row) { return row.task == task; });
        if (it == m_rows.end())
            m_rows.push_back(makeRow(task));
    }
    for (const Row& row : m_rows)
        updateRow(row);
    setVisible(!m_rows.empty());
}

} // namespace Kestrion
