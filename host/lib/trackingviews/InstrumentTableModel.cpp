#include "host/lib/trackingviews/InstrumentTableModel.h"

#include "host/stream/InstrumentStatusData.h"
#include "host/stream/InstrumentTipData.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/InstrumentNames.h"
#include "host/stream/state/InstrumentTracking.h"
#include "host/stream/state/ReferencePoseData.h"

#include <QBrush>
#include <QColor>
#include <QFont>

#include <cmath>
#include <limits>

namespace Kestrion {

namespace {

/// "x, y, z" to a tenth of a millimetre: narrow enough for the table at the default window size.
QString point(const Eigen::Vector3d& p) {
    return QStringLiteral("%1, %2, %3").arg(p.x(), 0, 'f', 1).arg(p.y(), 0, 'f', 1).arg(p.z(), 0, 'f', 1);
}

} // namespace

InstrumentTableModel::InstrumentTableModel(QObject* parent)
    : QAbstractTableModel(parent) {}

void InstrumentTableModel::showFrame(const TrackingStreamData& frame, std::uint64_t nowMs) {
    const auto* statusData = frame.component<InstrumentStatusData>();
    const InstrumentNames* names = frame.component<InstrumentNames>();
    if (!names)
        names = m_fallbackNames.get();
    const auto* tips = frame.component<InstrumentTipData>();
    // Relative poses count only when computed for the reference chosen now.
    const auto* poses = frame.component<ReferencePoseData>();
    if (poses && (m_reference.empty() || poses->referenceId() != m_reference))
        poses = nullptr;
    const std::uint64_t frameMs = frameTimeUS(frame) / 1000;
    const std::vector<TrackingInstrument>& instruments = frame.instruments();
    bool sameInstruments = instruments.size() == m_rows.size();
    for (std::size_t i = 0; sameInstruments && i < instruments.size(); ++i)
        sameInstruments = instruments[i].ID() == m_rows[i].id;
    std::vector<Row> rows;
    rows.reserve(instruments.size());
    for (std::size_t i = 0; i < instruments.size(); ++i) {
        const TrackingInstrument& instrument = instruments[i];
        Row row;
        if (sameInstruments) {
            row = m_rows[i]; // keeps the last tracked position and time
        } else {
            for (const Row& old : m_rows)
                if (old.id == instrument.ID())
                    row = old;
        }
        row.id = instrument.ID();
        row.name = names ? names->displayName(row.id) : row.id;
        row.quality = instrument.quality;
        row.registrationErrorMm = std::numeric_limits<double>::quiet_NaN();
        row.reason.clear();
        row.tracked = isInstrumentTracked(frame, instrument);
        const InstrumentStatusData::Entry* entry = statusData ? statusData->find(instrument.ID()) : nullptr;
        if (entry) {
            row.status = QString::fromUtf8(InstrumentStatusData::stateName(entry->state));
            row.reason = QString::fromStdString(entry->reason);
            row.registrationErrorMm = entry->registrationErrorMm;
        } else {
            row.status = !instrument.active ? tr("inactive")
                         : row.tracked      ? tr("tracked")
                                            : tr("not tracked");
        }
        row.severity = !row.tracked                                                             ? 2
                       : entry && entry->state == InstrumentStatusData::State::TrackedHighError ? 1
                                                                                                : 0;
        if (row.tracked) {
            row.position = instrument.translation();
            row.lastSeenMs = frameMs;
            const InstrumentTipData::Entry* tip = tips ? tips->find(row.id) : nullptr;
            row.tip = tip ? std::optional<Eigen::Vector3d>(tip->tipInCamera) : std::nullopt;
        }
        const ReferencePoseData::Entry* relative = poses ? poses->find(row.id) : nullptr;
        row.inReference = relative
                              ? std::optional<Eigen::Vector3d>(relative->poseInReference.block<3, 1>(0, 3))
                              : std::nullopt;
        row.referenceNotSeen = poses && !poses->referenceTracked() && row.id != m_reference;
        rows.push_back(std::move(row));
    }
    m_nowMs = nowMs;
    if (!sameInstruments) {
        beginResetModel();
        m_rows = std::move(rows);
        endResetModel();
    } else if (!m_rows.empty()) {
        m_rows = std::move(rows);
        emit dataChanged(index(0, 0), index(rowCount() - 1, ColumnCount - 1));
    }
}

void InstrumentTableModel::setCurrent(bool current, const QString& reason) {
    if (current == m_current && reason == m_heldReason)
        return;
    m_current = current;
    m_heldReason = current ? QString() : reason;
    if (!m_rows.empty())
        emit dataChanged(index(0, 0), index(rowCount() - 1, ColumnCount - 1));
}

void InstrumentTableModel::setReference(const std::string& instrumentId) {
    if (instrumentId == m_reference)
        return;
    m_reference = instrumentId;
    for (Row& row : m_rows) { // they were of another reference
        row.inReference.reset();
        row.referenceNotSeen = false;
    }
    if (!m_rows.empty())
        emit dataChanged(index(0, 0), index(rowCount() - 1, ColumnCount - 1));
}

void InstrumentTableModel::showTime(std::uint64_t nowMs) {
    m_nowMs = nowMs;
    if (!m_rows.empty())
        emit dataChanged(index(0, LastSeen), index(rowCount() - 1, LastSeen));
}

void InstrumentTableModel::clear() {
    beginResetModel();
    m_rows.clear();
    endResetModel();
}

bool InstrumentTableModel::isTracked(int row) const {
    return m_current && row >= 0 && row < rowCount() && m_rows[static_cast<std::size_t>(row)].tracked;
}

int InstrumentTableModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(m_rows.size());
}

int InstrumentTableModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant InstrumentTableModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= rowCount() || index.column() >= ColumnCount)
        return {};
    const Row& row = m_rows[static_cast<std::size_t>(index.row())];
    const bool tracked = m_current && row.tracked;
    if (role == Qt::BackgroundRole) {
        static const QColor colours[] = {QColor(200, 240, 200), QColor(255, 225, 160), QColor(250, 205, 205)};
        return QBrush(colours[tracked ? row.severity : 2]);
    }
    const bool isReference = !m_reference.empty() && row.id == m_reference;
    const bool referenceNotSeen = m_current && row.referenceNotSeen;
    if (role == Qt::FontRole && isReference && (index.column() == Name || index.column() == InReference)) {
        QFont font;
        font.setBold(true);
        return font;
    }
    if (role == Qt::ForegroundRole && referenceNotSeen && index.column() == InReference)
        return QBrush(QColor(176, 0, 0));
    if (role == Qt::ForegroundRole && !tracked && index.column() >= Quality &&
        index.column() <= RegistrationError)
        return QBrush(QColor(128, 128, 128)); // the last values, not the present
    if (role == Qt::TextAlignmentRole && index.column() >= Quality && index.column() <= LastSeen)
        return QVariant(Qt::AlignRight | Qt::AlignVCenter);
    if (role != Qt::DisplayRole && role != Qt::ToolTipRole &&
        !(role == Qt::EditRole && index.column() == Name))
        return {};
    switch (index.column()) {
    case Id:
        return QString::fromStdString(row.id);
    case Name:
        return QString::fromStdString(row.name);
    case Status:
        return m_current ? row.status : tr("not tracked");
    case Reason:
        if (!m_current)
            return m_heldReason;
        if (referenceNotSeen)
            return row.reason.isEmpty() ? tr("reference not seen") : row.reason + tr("; reference not seen");
        return row.reason;
    case Quality:
        return QString::number(row.quality, 'f', 3);
    case X:
    case Y:
    case Z:
        return row.position ? QString::number((*row.position)[index.column() - X], 'f', 2) : QString();
    case Tip:
        return row.tip ? point(*row.tip) : QString();
    case InReference:
        if (isReference)
            return tr("(reference)");
        if (referenceNotSeen)
            return tr("reference not seen");
        return m_current && row.inReference ? point(*row.inReference) : QString();
    case RegistrationError:
        return std::isnan(row.registrationErrorMm) ? QString()
                                                   : QString::number(row.registrationErrorMm, 'f', 3);
    case LastSeen:
        if (!row.lastSeenMs)
            return tr("never");
        return tr("%1 s").arg(static_cast<double>(m_nowMs > *row.lastSeenMs ? m_nowMs - *row.lastSeenMs : 0) /
                                  1000.0,
                              0, 'f', 1);
    default:
        return {};
    }
}

Qt::ItemFlags InstrumentTableModel::flags(const QModelIndex& index) const {
    const Qt::ItemFlags base = QAbstractTableModel::flags(index);
    return index.isValid() && index.column() == Name ? base | Qt::ItemIsEditable : base;
}

bool InstrumentTableModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    if (!index.isValid() || index.column() != Name || role != Qt::EditRole || index.row() >= rowCount())
        return false;
    const Row& row = m_rows[static_cast<std::size_t>(index.row())];
    const QString name = value.toString().trimmed();
    // Cleared, or left as shown (the id of an unnamed instrument): no name of its own.
    emit nameEdited(QString::fromStdString(row.id),
                    name == QString::fromStdString(row.id) ? QString() : name);
    return false;
}

bool InstrumentTableModel::anyNamed() const {
    for (const Row& row : m_rows)
        if (row.name != row.id)
            return true;
    return false;
}

bool InstrumentTableModel::anyTip() const {
    for (const Row& row : m_rows)
        if (row.tip)
            return true;
    return false;
}

QVariant InstrumentTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation == Qt::Horizontal && role == Qt::ToolTipRole && section == RegistrationError)
        return tr("Registration error (mm): how far the measured fiducials lie from the geometry placed at "
                  "the pose");
    if (orientation == Qt::Horizontal && role == Qt::ToolTipRole && section == Tip)
        return tr(
            "The tool tip in camera coordinates (x, y, z in mm), for instruments whose geometry has one");
    if (orientation == Qt::Horizontal && role == Qt::ToolTipRole && section == InReference)
        return tr("The position in the reference's frame (x, y, z in mm): only while the instrument and the "
                  "reference are tracked in the same frame");
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    static const char* const titles[] = {
        QT_TR_NOOP("Id"),         QT_TR_NOOP("Name"),      QT_TR_NOOP("Status"),
        QT_TR_NOOP("Quality"),    QT_TR_NOOP("x (mm)"),    QT_TR_NOOP("y (mm)"),
        QT_TR_NOOP("z (mm)"),     QT_TR_NOOP("Tip (mm)"),  QT_TR_NOOP("In reference (mm)"),
        QT_TR_NOOP("Error (mm)"), QT_TR_NOOP("Last seen"), QT_TR_NOOP("Reason")};
    return section >= 0 && section < ColumnCount ? tr(titles[section]) : QVariant();
}

} // namespace Kestrion
