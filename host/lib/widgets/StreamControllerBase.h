#pragma once

#include "host/core/SignalReceiver.h"
#include "host/lib/widgets/AlgorithmControllerWidget.h"

namespace Kestrion {

class PropertiesWidget;

/// Base of the panels that control an algorithm that creates and runs a stream. A derived panel
/// builds its widgets, typically a PropertiesWidget for the algorithm with its
/// parameterChanged(std::string) signal connected to onParameterChanged() and then to
/// updateStreamSettings(), binds to the algorithm's stream in init() (calling the base first),
/// and connects host signals as a SignalReceiver: those connections end when the panel is
/// destroyed (the destructor ends them before the panel's members go).
///
/// The display widget and main window pointers (AlgorithmControllerWidget) are set by the host
/// before init().
class StreamControllerBase : public AlgorithmControllerWidget, public SignalReceiver {
    Q_OBJECT
public:
    explicit StreamControllerBase(Algorithm* algorithm, QWidget* parent = nullptr);
    ~StreamControllerBase() override;

    void init() override;

    /// The properties widget used when a slot is called directly rather than by a widget's
    /// signal (optional; the sender of the signal is used otherwise).
    void setPropertiesWidget(PropertiesWidget* widget);
    PropertiesWidget* propertiesWidget() const;

public slots:
    /// Hands the parameter just edited in the properties widget to the algorithm (only that
    /// parameter: settings changed elsewhere meanwhile are kept). A stream-creating algorithm
    /// forwards it to its stream's configure().
    virtual void onParameterChanged();
    /// Shows the stream settings as the algorithm now reports them (its configuration(), for a
    /// stream-creating algorithm the stream's), so that the properties widget shows values the
    /// stream clamped or read from the device rather than what was typed.
    virtual void updateStreamSettings();

protected:
    /// The PropertiesWidget that sent the signal being handled, else the one set.
    PropertiesWidget* activePropertiesWidget() const;

private:
    QPointer<PropertiesWidget> m_propertiesWidget;
};

} // namespace Kestrion
