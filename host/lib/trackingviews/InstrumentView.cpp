#include "host/lib/trackingviews/InstrumentView.h"

#include "host/core/Log.h"
#include "host/core/LogSink.h"
#include "host/core/Time.h"
#include "host/lib/trackingviews/InstrumentTableModel.h"
#include "host/lib/trackingviews/StreamCondition.h"
#include "host/lib/trackingviews/TrackingStreamTap.h"
#include "host/stream/TrackingStream.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/InstrumentNames.h"

#include <QAction>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QTableView>
#include <QVBoxLayout>

#include <mutex>

namespace Kestrion {

namespace {

/// About the refresh of a screen; faster gains nothing a user can see.
constexpr int RefreshMs = 33;

/// A stream that stopped delivering is the one thing the user must not miss.
const QString AlertStyle =
    QStringLiteral("color: white; background: #b00000; font-weight: bold; padding: 4px; border-radius: 3px");
const QString StoppedStyle = QStringLiteral("font-weight: bold; padding: 4px");

/// Keeps the newest error of the log, for the reason a stream stopped. Written by any thread that
/// logs (the stream's worker reports its faults), read by the GUI thread.
class NewestError : public LogSink {
public:
    void write(const LogRecord& record) override {
        if (record.level < Log::Error)
            return;
        std::lock_guard<std::mutex> lock(m_mutex);
        m_message = record.message;
        m_timestampMs = record.timestampMs;
    }
    /// The newest error logged at or after `sinceMs` (ms since the epoch, UTC), or "".
    std::string newestSince(std::uint64_t sinceMs) {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_timestampMs >= sinceMs ? m_message : std::string();
    }

private:
    std::mutex m_mutex; // loggers on any thread, the view on the GUI thread
    std::string m_message;
    std::uint64_t m_timestampMs = 0;
};

} // namespace

InstrumentView::InstrumentView(QWidget* parent)
    : QWidget(parent)
    , m_model(new InstrumentTableModel(this))
    , m_table(new QTableView(this))
    , m_placeholder(new QLabel(this))
    , m_state(new QLabel(this))
    , m_errors(std::make_shared<NewestError>()) {
    setObjectName(QStringLiteral("InstrumentView"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(2, 2, 2, 2);
    layout->addWidget(m_state);
    layout->addWidget(m_placeholder);
    layout->addWidget(m_table);
    m_state->setObjectName(QStringLiteral("StreamState"));
    m_state->setWordWrap(true);
    m_state->hide();
    m_placeholder->setAlignment(Qt::AlignCenter);
    m_placeholder->setWordWrap(true);
    m_table->setModel(m_model);
    m_table->setSelectionMode(QAbstractItemView::NoSelection);
    m_table->verticalHeader()->hide();
    m_table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    m_table->horizontalHeader()->setStretchLastSection(true);
    // Names are edited in place (double click on a name): the stream's names take them.
    m_table->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed);
    connect(m_model, &InstrumentTableModel::nameEdited, this, &InstrumentView::renameInstrument);
    m_table->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_table, &QWidget::customContextMenuRequested, this, &InstrumentView::showContextMenu);
    connect(&m_timer, &QTimer::timeout, this, &InstrumentView::refresh);
    m_timer.setInterval(RefreshMs);
    Log::addSink(m_errors);
    setStream(nullptr);
}

InstrumentView::~InstrumentView() {
    Log::removeSink(m_errors);
}

void InstrumentView::setStream(TrackingStream* stream) {
    m_tap.reset(); // ends the connection to the previous stream before anything else changes
    m_model->clear();
    m_sawRunning = false;
    if (stream) {
        m_tap = std::make_unique<TrackingStreamTap>(*stream);
        m_tap->requestStatus(isVisible());
    }
    refresh();
}

TrackingStream* InstrumentView::stream() const {
    return m_tap ? &m_tap->stream() : nullptr;
}

QString InstrumentView::stateText() const {
    return m_state->isHidden() ? QString() : m_state->text();
}

void InstrumentView::showState(const StreamCondition& condition) {
    if (!m_tap) {
        m_state->hide();
        return;
    }
    const TrackingStream& stream = m_tap->stream();
    const Stream::State state = stream.currentState();
    if (state == Stream::State::Running) {
        m_lastRunningMs = Time::utcMilliseconds();
        m_sawRunning = true;
        if (condition.current) {
            m_state->hide();
            return;
        }
        // Running, but the camera sends nothing (unplugged, failing) or its data has ended.
        m_state->setStyleSheet(AlertStyle);
        m_state->setText(condition.sentence);
        m_state->show();
        return;
    }
    // A stream reports its fault just before or just after it closes itself, maybe between two
    // refreshes that saw it running: errors from a second before the last such refresh count.
    const std::string error = m_sawRunning
                                  ? static_cast<NewestError&>(*m_errors).newestSince(m_lastRunningMs - 1000)
                                  : std::string();
    const QString name = QString::fromStdString(stream.name());
    const QString stateName = QString::fromLatin1(Stream::stateName(state));
    if (m_sawRunning) {
        m_sawRunning = false;
        // A stop the user asked for is not an alarm; one with an error is.
        m_state->setStyleSheet(error.empty() ? StoppedStyle : AlertStyle);
        m_state->setText(error.empty() ? tr("The stream \"%1\" stopped; it is %2.").arg(name, stateName)
                                       : tr("The stream \"%1\" stopped; it is %2. Last error: %3")
                                             .arg(name, stateName, QString::fromStdString(error)));
    } else if (m_state->isHidden()) {
        m_state->setStyleSheet(QString());
        m_state->setText(tr("The stream \"%1\" is %2.").arg(name, stateName));
    }
    m_state->show();
}

QString InstrumentView::placeholderText() const {
    return m_placeholder->isHidden() ? QString() : m_placeholder->text();
}

void InstrumentView::showPlaceholder(const QString& text) {
    m_placeholder->setText(text);
    m_placeholder->setVisible(!text.isEmpty());
    m_table->setVisible(text.isEmpty());
}

void InstrumentView::refresh() {
    if (!m_tap) {
        showState({});
        showPlaceholder(tr("No tracking stream: create a tracking algorithm (or open a workspace with "
                           "one) to see its instruments here."));
        return;
    }
    // The health is read before the newest frame is taken: a frame that arrives in between is
    // newer than the health says, never older.
    const StreamCondition condition = StreamCondition::of(m_tap->stream());
    showState(condition);
    const std::uint64_t now = Time::utcMilliseconds();
    m_model->setFallbackNames(m_tap->stream().instrumentNames());
    // The stream's setting decides which row is the reference, also for frames made before it.
    m_model->setReference(m_tap->stream().referenceInstrument());
    if (const std::shared_ptr<const TrackingStreamData> frame = m_tap->latest().take())
        m_model->showFrame(*frame, now);
    else
        m_model->showTime(now);
    m_model->setCurrent(condition.current, condition.reason);
    // Until an instrument is named, its name is its id: one column says it.
    m_table->setColumnHidden(InstrumentTableModel::Id, !m_model->anyNamed());
    // Columns that would stay empty take no room from the numbers.
    m_table->setColumnHidden(InstrumentTableModel::Tip, !m_model->anyTip());
    m_table->setColumnHidden(InstrumentTableModel::InReference, m_model->reference().empty());
    if (m_model->rowCount() > 0)
        showPlaceholder(QString());
    else if (m_tap->latest().framesPut() == 0)
        showPlaceholder(tr("Waiting for the first frame of the stream (it shows once the stream runs)."));
    else
        showPlaceholder(tr("The stream has no instruments: load a marker geometry to track one."));
}

std::optional<std::string> InstrumentView::renameInstrument(const QString& instrumentId,
                                                            const QString& name) {
    if (!m_tap)
        return std::string("no stream");
    TrackingStream& stream = m_tap->stream();
    const std::shared_ptr<const InstrumentNames> current = stream.instrumentNames();
    InstrumentNames names = current ? *current : InstrumentNames();
    std::optional<std::string> problem = names.setName(instrumentId.toStdString(), name.toStdString());
    if (problem) {
        KESTRION_LOG_WARN("InstrumentView", "Cannot name " << instrumentId.toStdString() << ": " << *problem);
        return problem;
    }
    stream.setInstrumentNames(names);
    m_model->setFallbackNames(stream.instrumentNames());
    return std::nullopt;
}

void InstrumentView::setReferenceInstrument(const QString& instrumentId) {
    if (!m_tap)
        return;
    TrackingStream& stream = m_tap->stream();
    const std::string id = instrumentId.toStdString();
    stream.setReferenceInstrument(id);
    if (id.empty()) {
        KESTRION_LOG_INFO("InstrumentView", "No reference instrument: the instruments are given in camera "
                                            "coordinates only");
    } else {
        const std::shared_ptr<const InstrumentNames> names = stream.instrumentNames();
        KESTRION_LOG_INFO("InstrumentView", "Reference instrument: " << (names ? names->displayName(id) : id)
                                                                     << "; the others are also given in its "
                                                                        "frame");
    }
    refresh();
}

std::unique_ptr<QMenu> InstrumentView::contextMenu(int row) {
    auto menu = std::make_unique<QMenu>(this);
    const std::string reference = m_tap ? m_tap->stream().referenceInstrument() : std::string();
    if (m_tap && row >= 0 && row < m_model->rowCount()) {
        const QString id = m_model->data(m_model->index(row, InstrumentTableModel::Id)).toString();
        const QString name = m_model->data(m_model->index(row, InstrumentTableModel::Name)).toString();
        QAction* use = menu->addAction(tr("Use %1 as the reference").arg(name));
        use->setObjectName(QStringLiteral("useAsReference"));
        use->setCheckable(true);
        use->setChecked(id.toStdString() == reference);
        connect(use, &QAction::triggered, this, [this, id] { setReferenceInstrument(id); });
    }
    QAction* none = menu->addAction(tr("No reference"));
    none->setObjectName(QStringLiteral("noReference"));
    none->setEnabled(!reference.empty());
    connect(none, &QAction::triggered, this, [this] { setReferenceInstrument(QString()); });
    return menu;
}

void InstrumentView::showContextMenu(const QPoint& position) {
    const std::unique_ptr<QMenu> menu = contextMenu(m_table->indexAt(position).row());
    menu->exec(m_table->viewport()->mapToGlobal(position));
}

void InstrumentView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (m_tap)
        m_tap->requestStatus(true);
    m_timer.start();
    refresh();
}

void InstrumentView::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    if (m_tap)
        m_tap->requestStatus(false);
    m_timer.stop();
}

} // namespace Kestrion
