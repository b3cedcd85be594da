#pragma once

#include <QList>
#include <QObject>
#include <QStringList>
#include <QUrl>

#include <mutex>

namespace Kestrion {

/// Catches QDesktopServices::openUrl for some URL schemes (by default "file") while it exists:
/// the URLs are recorded instead of being handed to the desktop, and openUrl returns true.
/// Tests create one around code that opens folders or documents, then check urls(). Only one
/// recorder per scheme at a time; the destructor gives the scheme back to the desktop.
///
/// openUrl calls the recorder synchronously on the calling thread, whichever it is.
class UrlOpenRecorder : public QObject {
    Q_OBJECT
public:
    explicit UrlOpenRecorder(QStringList schemes = {QStringLiteral("file")}, QObject* parent = nullptr);
    ~UrlOpenRecorder() override;

    QList<QUrl> urls() const;
    void clear();

signals:
    void opened(const QUrl& url);

public slots:
    /// Called by QDesktopServices::openUrl.
    void open(const QUrl& url);

private:
    QStringList m_schemes;
    mutable std::mutex m_mutex; // openUrl may come from any thread while the test reads
    QList<QUrl> m_urls;
};

} // namespace Kestrion
