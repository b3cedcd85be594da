#pragma once

#include "host/lib/trackingviews/StreamCondition.h"
#include "host/stream/state/DeviceReading.h"

#include <QFutureWatcher>
#include <QTimer>
#include <QWidget>

class QFormLayout;
class QLabel;

namespace Kestrion {

class Stream;

/// The health of a stream as the host defines it (StreamHealth), for the bench: its state, the
/// frame rate measured, the frames received, the outages (count and total time), the
/// reopenings after it was lost, the time since the last frame and the last error, refreshed
/// twice a second; for a tracking stream also what its device reports about itself
/// (TrackingStream::readDevice): its temperature and its other values, read once a second.
/// summary() is the one-line form for a status bar ("Camera: delivering,
/// 54.0 Hz"), alarming() tells when it must stand out (running but not delivering, or ended).
/// GUI thread, but for the device's readings: reading them may wait for the device, so they are
/// read on Qt's pool (m_reading, one read at a time) and shown when the read has ended;
/// setStream() and the destructor wait for a read still running on the stream they let go.
class StreamHealthView : public QWidget {
    Q_OBJECT
public:
    explicit StreamHealthView(QWidget* parent = nullptr);
    ~StreamHealthView() override;

    /// Follows that stream (null: none). The stream must outlive its following.
    void setStream(const Stream* stream);
    const Stream* stream() const { return m_stream; }

    /// The value shown for a field ("State", "Frame rate", "Frames", "Outages",
    /// "Reconnections", "Since last frame", "Last error", "Temperature", "Camera values": one
    /// line "name: value unit" per other value the device measures or counts).
    QString field(const QString& name) const;
    /// A field's tooltip: for "Camera values", the device's settings in force, one line each.
    QString toolTip(const QString& name) const;
    QString summary() const { return m_summary; }
    bool alarming() const { return m_alarming; }

public slots:
    void refresh();
    /// Starts a read of the device's values unless one runs.
    void readDevice();

signals:
    /// The one-line summary changed.
    void summaryChanged(const QString& summary, bool alarming);

protected:
    void showEvent(QShowEvent* event) override;

private:
    QLabel* addField(const QString& name);

    const Stream* m_stream = nullptr;
    QFormLayout* m_form;
    std::vector<std::pair<QString, QLabel*>> m_fields;
    QString m_summary;
    bool m_alarming = false;
    QTimer m_timer;
    QTimer m_deviceTimer;
    QFutureWatcher<std::vector<DeviceReading>> m_reading;
    std::vector<DeviceReading> m_readings;
    /// The stream whose values the running (or last) read gives.
    const Stream* m_readFor = nullptr;
};

} // namespace Kestrion
