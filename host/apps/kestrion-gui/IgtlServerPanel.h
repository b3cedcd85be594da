#pragma once

#include "host/lib/widgets/AlgorithmControllerWidget.h"

class QDoubleSpinBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTimer;

namespace Kestrion::Igtl {
class IgtlServerAlgorithm;
}

namespace Kestrion::Gui {

class IgtlClientTable;

/// The desktop host's panel of the OpenIGTLink server (Igtl::IgtlServerAlgorithm).
///
/// Settings: the port, the bind address and the camera images sent per second, checked as they
/// are typed (IgtlEndpoint): a field that does not hold a valid value is marked, the reason is
/// shown below the fields, the algorithm keeps its last valid value and Start is disabled. A
/// valid edit goes to the algorithm at once (so it is saved with the workspace) but the server
/// takes it only on Start: a running server is never stopped by what is typed.
///
/// Start listens with the settings (while the server runs with other settings than those typed,
/// it reads "Restart", and the running server goes on when the new one cannot listen); Stop
/// stops it.
/// Below, read-only: where it listens, or that it does not; the reason of the last failed start,
/// as the server gave it ("OpenIGTLink server cannot listen on 127.0.0.1:18944: Address already
/// in use"); and the clients (IgtlClientTable), read from the server about twice a second.
///
/// GUI thread only. Start and Stop run on it: binding a socket and starting or joining the
/// server's threads are short and never wait on a client or on the network.
class IgtlServerPanel : public AlgorithmControllerWidget {
    Q_OBJECT
public:
    IgtlServerPanel(Igtl::IgtlServerAlgorithm* algorithm, QWidget* parent = nullptr);
    ~IgtlServerPanel() override;

    void init() override;

    QLineEdit* portEdit() const { return m_port; }
    QLineEdit* bindAddressEdit() const { return m_bindAddress; }
    QDoubleSpinBox* imageRateBox() const { return m_imageRate; }
    QPushButton* startButton() const { return m_start; }
    QPushButton* stopButton() const { return m_stop; }
    /// Where the server listens ("Listening on 127.0.0.1:18944") or "Not listening".
    QLabel* stateLabel() const { return m_state; }
    /// Why the last start failed; empty and hidden otherwise.
    QLabel* errorLabel() const { return m_error; }
    /// What is wrong with the typed settings ("Port: the port is not between 0 and 65535");
    /// empty and hidden when they are valid.
    QLabel* problemLabel() const { return m_problem; }
    /// The warning shown while the bind address lets other computers connect.
    QLabel* exposureLabel() const { return m_exposure; }
    /// "Restart to apply ..." while the running server's settings differ from the typed ones.
    QLabel* pendingLabel() const { return m_pending; }
    IgtlClientTable* clientTable() const { return m_clients; }

public slots:
    void start();
    void stop();
    /// Reads the server's state and clients again (the panel's timer calls it).
    void refresh();

private:
    Igtl::IgtlServerAlgorithm* server() const;
    void onPortEdited();
    void onBindAddressEdited();
    /// Marks the fields, shows the reasons and the warnings, enables the buttons.
    void updateChecks();

    QLineEdit* m_port;
    QLineEdit* m_bindAddress;
    QDoubleSpinBox* m_imageRate;
    QLabel* m_problem;
    QLabel* m_exposure;
    QPushButton* m_start;
    QPushButton* m_stop;
    QLabel* m_state;
    QLabel* m_error;
    QLabel* m_pending;
    QLabel* m_clientsTitle;
    IgtlClientTable* m_clients;
    QTimer* m_timer;
};

} // namespace Kestrion::Gui
