#include "host/apps/kestrion-gui/IgtlClientTable.h"

#include <QHeaderView>

namespace Kestrion::Gui {

IgtlClientTable::IgtlClientTable(QWidget* parent)
    : QTableWidget(0, ColumnCount, parent) {
    setObjectName(QStringLiteral("IgtlClients"));
    setHorizontalHeaderLabels({tr("Client"), tr("Sent"), tr("Dropped"), tr("TDATA")});
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setSelectionMode(QAbstractItemView::NoSelection);
    setFocusPolicy(Qt::NoFocus);
    verticalHeader()->setVisible(false);
    horizontalHeader()->setSectionResizeMode(Address, QHeaderView::Stretch);
    for (const Column column : {Sent, Dropped, TrackingData})
        horizontalHeader()->setSectionResizeMode(column, QHeaderView::ResizeToContents);
}

void IgtlClientTable::showClients(const std::vector<Igtl::IgtlClientInfo>& clients) {
    setRowCount(static_cast<int>(clients.size()));
    const auto put = [this](int row, Column column, const QString& text) {
        QTableWidgetItem* cell = item(row, column);
        if (!cell) {
            cell = new QTableWidgetItem;
            if (column != Address)
                cell->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
            setItem(row, column, cell);
        }
        if (cell->text() != text)
            cell->setText(text);
    };
    for (int row = 0; row < rowCount(); ++row) {
        const Igtl::IgtlClientInfo& client = clients[static_cast<std::size_t>(row)];
        put(row, Address, QString::fromStdString(client.address));
        put(row, Sent, QString::number(client.messagesSent));
        put(row, Dropped, QString::number(client.messagesDropped));
        put(row, TrackingData, client.trackingData ? tr("yes") : QString());
    }
}

QString IgtlClientTable::cellText(int row, Column column) const {
    const QTableWidgetItem* cell = item(row, column);
    return cell ? cell->text() : QString();
}

} // namespace Kestrion::Gui
