#pragma once

#include <QTimer>
#include <QWidget>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

class QLabel;
class QMenu;
class QTableView;

namespace Kestrion {
class LogSink;
}

namespace Kestrion {

class InstrumentTableModel;
struct StreamCondition;
class TrackingStream;
class TrackingStreamTap;

/// A table of the instruments of a tracking stream (see InstrumentTableModel), refreshed at
/// screen rate (about 30 times a second) from the newest frame: the stream's worker thread only
/// hands each frame over (LatestTrackingFrame), so the view never slows the stream. While shown,
/// the view asks the stream for the instrument status (the reasons); hidden, it releases it.
/// Without a stream, or with one that has no instrument, it says so; a stream that is not running
/// is named with its state above the table, and one that stopped while followed (by itself, after
/// a fault, or by the user) with the last error logged since it was last seen running. While the
/// stream does not deliver (StreamCondition: not delivering, stopped, closed, its data ended) no
/// row is tracked and a banner above the table says why.
///
/// The user chooses the reference instrument in the table's context menu ("Use ... as the
/// reference", "No reference"): the stream's setting (TrackingStream::setReferenceInstrument),
/// which every output of the stream reads and the stream's workspace keeps. The reference's row is
/// marked and the others show their position in its frame (InstrumentTableModel).
/// GUI thread only.
class InstrumentView : public QWidget {
    Q_OBJECT
public:
    explicit InstrumentView(QWidget* parent = nullptr);
    ~InstrumentView() override;

    /// Follows that stream (null: none). The stream must outlive its following: call
    /// setStream(nullptr) before it goes.
    void setStream(TrackingStream* stream);
    TrackingStream* stream() const;

    InstrumentTableModel* model() const { return m_model; }
    QTableView* table() const { return m_table; }
    /// The text shown instead of the table ("" while the table shows).
    QString placeholderText() const;
    /// The stream's state line ("" while it runs).
    QString stateText() const;

    /// Names an instrument of the stream (empty: its id again), as an edit of the name column
    /// does; the reason when the name is refused (also logged), none when the stream took it.
    std::optional<std::string> renameInstrument(const QString& instrumentId, const QString& name);

    /// Makes that instrument the stream's reference ("": none), as the context menu does.
    void setReferenceInstrument(const QString& instrumentId);
    /// The context menu of a row (-1: of no row), as the table shows it; its actions act at once.
    std::unique_ptr<QMenu> contextMenu(int row);

public slots:
    /// Shows the newest frame (the timer calls it).
    void refresh();

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void showPlaceholder(const QString& text);
    void showState(const StreamCondition& condition);
    void showContextMenu(const QPoint& position);

    InstrumentTableModel* m_model;
    QTableView* m_table;
    QLabel* m_placeholder;
    QLabel* m_state;
    /// The newest error of the log, written from any thread.
    std::shared_ptr<LogSink> m_errors;
    bool m_sawRunning = false;
    std::uint64_t m_lastRunningMs = 0;
    std::unique_ptr<TrackingStreamTap> m_tap;
    QTimer m_timer;
};

} // namespace Kestrion
