#include "host/apps/kestrion-gui/IgtlServerPanel.h"

#include "host/apps/kestrion-gui/IgtlClientTable.h"
#include "host/apps/kestrion-gui/IgtlServing.h"
#include "host/igtl/IgtlEndpoint.h"
#include "host/igtl/IgtlServerAlgorithm.h"
#include "host/lib/widgets/LogAlertWidget.h"
#include "host/lib/widgets/MainWindow.h"

#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

#include <optional>

namespace Kestrion::Gui {

namespace {

const char* const InvalidStyle = "QLineEdit { background-color: #ffd6d6; }";

QLabel* wrappedLabel(const char* name, const QString& style, QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setObjectName(QString::fromLatin1(name));
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    label->setStyleSheet(style);
    label->hide();
    return label;
}

void showText(QLabel* label, const QString& text) {
    label->setText(text);
    label->setVisible(!text.isEmpty());
}

} // namespace

IgtlServerPanel::IgtlServerPanel(Igtl::IgtlServerAlgorithm* algorithm, QWidget* parent)
    : AlgorithmControllerWidget(algorithm, parent)
    , m_port(new QLineEdit(this))
    , m_bindAddress(new QLineEdit(this))
    , m_imageRate(new QDoubleSpinBox(this))
    , m_problem(wrappedLabel("IgtlSettingsProblem", QStringLiteral("color: #b00020;"), this))
    , m_exposure(wrappedLabel("IgtlExposure", QStringLiteral("color: #8a5a00;"), this))
    , m_start(new QPushButton(tr("Start"), this))
    , m_stop(new QPushButton(tr("Stop"), this))
    , m_state(new QLabel(this))
    , m_error(wrappedLabel("IgtlError", QStringLiteral("color: #b00020;"), this))
    , m_pending(wrappedLabel("IgtlPending", QString(), this))
    , m_clientsTitle(new QLabel(this))
    , m_clients(new IgtlClientTable(this))
    , m_timer(new QTimer(this)) {
    setObjectName(QStringLiteral("IgtlServerPanel"));
    m_port->setObjectName(QStringLiteral("IgtlPort"));
    m_bindAddress->setObjectName(QStringLiteral("IgtlBindAddress"));
    m_imageRate->setObjectName(QStringLiteral("IgtlImageRate"));
    m_start->setObjectName(QStringLiteral("IgtlStart"));
    m_stop->setObjectName(QStringLiteral("IgtlStop"));
    m_state->setObjectName(QStringLiteral("IgtlListening"));
    m_state->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_exposure->setText(tr("Other computers can connect to this address: OpenIGTLink has no "
                           "authentication and no encryption, whoever reaches the port reads every pose."));
    m_imageRate->setRange(0.0, 60.0);
    m_imageRate->setDecimals(1);
    m_imageRate->setSuffix(tr(" per s"));
    m_imageRate->setToolTip(tr("Camera images sent per second at most; 0 sends none"));

    auto* settings = new QGroupBox(tr("Settings"), this);
    auto* form = new QFormLayout(settings);
    form->addRow(tr("Port"), m_port);
    form->addRow(tr("Bind address"), m_bindAddress);
    form->addRow(tr("Camera images"), m_imageRate);
    form->addRow(m_problem);
    form->addRow(m_exposure);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_start);
    buttons->addWidget(m_stop);
    buttons->addStretch(1);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(settings);
    layout->addLayout(buttons);
    layout->addWidget(m_state);
    layout->addWidget(m_error);
    layout->addWidget(m_pending);
    layout->addWidget(m_clientsTitle);
    layout->addWidget(m_clients, 1);

    if (Igtl::IgtlServerAlgorithm* target = server()) {
        const Igtl::IgtlServerSettings values = target->settings();
        m_port->setText(QString::number(values.port));
        m_bindAddress->setText(QString::fromStdString(values.bindAddress));
        m_imageRate->setValue(values.imageRateHz);
    }
    connect(m_port, &QLineEdit::textEdited, this, &IgtlServerPanel::onPortEdited);
    connect(m_bindAddress, &QLineEdit::textEdited, this, &IgtlServerPanel::onBindAddressEdited);
    connect(m_imageRate, QOverload<double>::of(&QDoubleSpinBox::valueChanged), this, [this](double rate) {
        if (Igtl::IgtlServerAlgorithm* target = server())
            target->setImageRateHz(rate);
        updateChecks();
    });
    connect(m_start, &QPushButton::clicked, this, &IgtlServerPanel::start);
    connect(m_stop, &QPushButton::clicked, this, &IgtlServerPanel::stop);
    connect(m_timer, &QTimer::timeout, this, &IgtlServerPanel::refresh);
    refresh();
}

IgtlServerPanel::~IgtlServerPanel() = default;

void IgtlServerPanel::init() {
    AlgorithmControllerWidget::init();
    refresh();
    m_timer->start(500);
}

Igtl::IgtlServerAlgorithm* IgtlServerPanel::server() const {
    return static_cast<Igtl::IgtlServerAlgorithm*>(algorithm());
}

void IgtlServerPanel::onPortEdited() {
    if (const std::optional<int> port = Igtl::IgtlEndpoint::parsePort(m_port->text().toStdString(), nullptr))
        if (Igtl::IgtlServerAlgorithm* target = server())
            target->setPort(*port);
    updateChecks();
}

void IgtlServerPanel::onBindAddressEdited() {
    const std::string address = m_bindAddress->text().trimmed().toStdString();
    if (Igtl::IgtlEndpoint::bindAddressProblem(address).empty())
        if (Igtl::IgtlServerAlgorithm* target = server())
            target->setBindAddress(address);
    updateChecks();
}

void IgtlServerPanel::start() {
    updateChecks();
    Igtl::IgtlServerAlgorithm* target = server();
    if (!target || !m_start->isEnabled())
        return; // what is typed is not valid, or the server already runs with it
    if (target->start()) {
        if (MainWindow* window = mainWindow()) {
            // An earlier failure is past: the server's own, and its algorithm's when a workspace
            // started it.
            window->logAlert()->resolve(QStringLiteral("IgtlServer"));
            window->logAlert()->resolve(QString::fromLatin1(IgtlServing::AlgorithmIdentifier));
        }
    }
    refresh();
}

void IgtlServerPanel::stop() {
    if (Igtl::IgtlServerAlgorithm* target = server())
        target->stop();
    refresh();
}

void IgtlServerPanel::refresh() {
    Igtl::IgtlServerAlgorithm* target = server();
    if (!target)
        return;
    const Igtl::IgtlServerAlgorithm::State state = target->state();
    m_state->setText(state.listening ? tr("Listening on %1").arg(QString::fromStdString(state.endpoint))
                                     : tr("Not listening"));
    showText(m_error, QString::fromStdString(state.error));
    const std::vector<Igtl::IgtlClientInfo> clients = target->clients();
    m_clients->showClients(clients);
    m_clientsTitle->setText(clients.empty() ? tr("Clients: none")
                                            : tr("Clients: %1").arg(static_cast<int>(clients.size())));
    updateChecks();
}

void IgtlServerPanel::updateChecks() {
    Igtl::IgtlServerAlgorithm* target = server();
    if (!target)
        return;
    std::string portProblem;
    const bool portValid =
        Igtl::IgtlEndpoint::parsePort(m_port->text().toStdString(), &portProblem).has_value();
    const QString addressText = m_bindAddress->text().trimmed();
    const std::string addressProblem = Igtl::IgtlEndpoint::bindAddressProblem(addressText.toStdString());
    const bool addressValid = addressProblem.empty();
    m_port->setStyleSheet(portValid ? QString() : QString::fromLatin1(InvalidStyle));
    m_port->setToolTip(QString::fromStdString(portProblem));
    m_bindAddress->setStyleSheet(addressValid ? QString() : QString::fromLatin1(InvalidStyle));
    m_bindAddress->setToolTip(QString::fromStdString(addressProblem));
    QStringList problems;
    if (!portValid)
        problems << tr("Port: %1").arg(QString::fromStdString(portProblem));
    if (!addressValid)
        problems << tr("Bind address \"%1\": %2 (e.g. 127.0.0.1, this computer only)")
                        .arg(addressText, QString::fromStdString(addressProblem));
    showText(m_problem, problems.join(QLatin1Char('\n')));
    m_exposure->setVisible(addressValid && !Igtl::IgtlEndpoint::isLoopback(addressText.toStdString()));

    const Igtl::IgtlServerAlgorithm::State state = target->state();
    const Igtl::IgtlServerSettings wanted = target->settings();
    const bool changed = state.listening && (state.running.port != wanted.port ||
                                             state.running.bindAddress != wanted.bindAddress ||
                                             state.running.imageRateHz != wanted.imageRateHz);
    const bool valid = portValid && addressValid;
    m_start->setText(changed ? tr("Restart") : tr("Start"));
    m_start->setEnabled(valid && (!state.listening || changed));
    m_stop->setEnabled(state.listening);
    QString pending;
    if (state.listening && !valid)
        pending = tr("The server goes on listening on %1; the settings typed are not valid.")
                      .arg(QString::fromStdString(state.endpoint));
    else if (changed)
        pending = tr("The server goes on listening on %1 with the settings it was started with; "
                     "Restart applies the new ones.")
                      .arg(QString::fromStdString(state.endpoint));
    showText(m_pending, pending);
}

} // namespace Kestrion::Gui
