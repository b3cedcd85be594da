#pragma once

#include <Eigen/Core>

#include <QAbstractTableModel>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Kestrion {

class InstrumentNames;
class TrackingStreamData;

/// The instruments of a tracking frame as a table, one row per instrument in the stream's order:
/// id, name (the user's name of the frame's InstrumentNames, else the id), status, quality,
/// position (x, y, z in mm, camera coordinates), tool tip (camera coordinates, for instruments
/// whose geometry has one), position in the reference's frame, registration error (mm), the time
/// since the instrument was last tracked and the reason of its status.
///
/// With a reference instrument chosen (setReference, the stream's setting), its row is marked
/// "(reference)" and every other row shows its position in the reference's frame from the frame's
/// ReferencePoseData: only when both were tracked in that frame, never a value of an earlier
/// frame; "reference not seen" (also after the reason) when the reference was not tracked.
///
/// Whether a row is tracked is the host's predicate (isInstrumentTracked) for the frame, and
/// nothing is tracked while the frame is not current (setCurrent(false): the stream stopped
/// delivering, see StreamCondition). Status and reason come from the frame's
/// InstrumentStatusData when the stream attaches it; otherwise the status is "tracked" or "not
/// tracked", "inactive" for an instrument that takes no part in tracking, and the reason and
/// registration error stay empty. A row that is not tracked keeps its last tracked values, shown
/// greyed, with the time since. Rows are coloured by status (green tracked, amber high error, red
/// otherwise). GUI thread only.
class InstrumentTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    /// The reason, the longest text, comes last, so that the numbers show in a narrow view.
    enum Column {
        Id,
        Name,
        Status,
        Quality,
        X,
        Y,
        Z,
        Tip,
        InReference,
        RegistrationError,
        LastSeen,
        Reason,
        ColumnCount
    };

    explicit InstrumentTableModel(QObject* parent = nullptr);

    /// Shows the frame; `nowMs` (ms since the epoch, UTC, like the frames' arrival times) dates
    /// the "last seen" column. The same instruments update their rows; a different set resets
    /// the table.
    void showFrame(const TrackingStreamData& frame, std::uint64_t nowMs);
    /// Updates the "last seen" column alone, for a refresh without a new frame.
    void showTime(std::uint64_t nowMs);
    /// Whether the frames shown are current (the default); while not, every row shows "not
    /// tracked" with `reason` ("camera not delivering") and its last values greyed.
    void setCurrent(bool current, const QString& reason = QString());
    bool isCurrent() const { return m_current; }
    /// Removes every row (no stream).
    void clear();
    /// The names shown for frames that carry none (the stream's names now); null: the ids.
    void setFallbackNames(std::shared_ptr<const InstrumentNames> names) {
        m_fallbackNames = std::move(names);
    }

    /// The instrument whose frame the others are shown in ("": none). Values of frames computed
    /// for another reference are not shown.
    void setReference(const std::string& instrumentId);
    const std::string& reference() const { return m_reference; }

    /// Whether some instrument has a name of its own (else the name column shows the ids).
    bool anyNamed() const;
    /// Whether some instrument has shown a tool tip (else the tip column has nothing to show).
    bool anyTip() const;
    /// Whether the row's instrument is tracked in the last frame shown, and that frame is current.
    bool isTracked(int row) const;

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    /// The name column is editable: an edit is announced (nameEdited), not applied here; the
    /// stream's names decide what the next frame shows.
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;

signals:
    void nameEdited(const QString& instrumentId, const QString& name);

private:
    struct Row {
        std::string id;
        std::string name;
        QString status;
        QString reason;
        /// 0 tracked, 1 tracked with a high error, 2 not tracked: the row's colour.
        int severity = 2;
        /// The values below are of a tracked frame (else the last tracked values).
        double quality = 0.0;
        bool tracked = false;
        std::optional<Eigen::Vector3d> position; // the last tracked one
        std::optional<Eigen::Vector3d> tip;      // the last tracked one, camera coordinates
        /// Of the last frame shown only, for the reference it was computed for.
        std::optional<Eigen::Vector3d> inReference;
        bool referenceNotSeen = false;
        double registrationErrorMm = 0.0; // NaN: none
        std::optional<std::uint64_t> lastSeenMs;
    };

    std::vector<Row> m_rows;
    std::uint64_t m_nowMs = 0;
    bool m_current = true;
    QString m_heldReason;
    std::string m_reference;
    std::shared_ptr<const InstrumentNames> m_fallbackNames;
};

} // namespace Kestrion
