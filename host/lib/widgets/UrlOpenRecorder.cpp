#include "host/lib/widgets/UrlOpenRecorder.h"

#include <QDesktopServices>

namespace Kestrion {

UrlOpenRecorder::UrlOpenRecorder(QStringList schemes, QObject* parent)
    : QObject(parent)
    , m_schemes(std::move(schemes)) {
    for (const QString& scheme : m_schemes)
        QDesktopServices::setUrlHandler(scheme, this, "open");
}

UrlOpenRecorder::~UrlOpenRecorder() {
    for (const QString& scheme : m_schemes)
        QDesktopServices::unsetUrlHandler(scheme);
}

QList<QUrl> UrlOpenRecorder::urls() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_urls;
}

void UrlOpenRecorder::clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_urls.clear();
}

void UrlOpenRecorder::open(const QUrl& url) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_urls.append(url);
    }
    emit opened(url);
}

} // namespace Kestrion
