#pragma once

#include "host/igtl/IgtlServer.h"

#include <QTableWidget>

#include <vector>

namespace Kestrion::Gui {

/// The clients of an OpenIGTLink server as its panel lists them: one row per client with its
/// address ("127.0.0.1:40308"), the messages sent to it whole, those dropped because it fell
/// behind, and whether it asked for TDATA. Read-only; GUI thread only.
class IgtlClientTable : public QTableWidget {
    Q_OBJECT
public:
    enum Column { Address, Sent, Dropped, TrackingData, ColumnCount };

    explicit IgtlClientTable(QWidget* parent = nullptr);

    /// Shows these clients (the server's own list, IgtlServer::clients()), in their order.
    void showClients(const std::vector<Igtl::IgtlClientInfo>& clients);
    /// The text of a cell ("" outside the table), for the panel's readers and tests.
    QString cellText(int row, Column column) const;
};

} // namespace Kestrion::Gui
