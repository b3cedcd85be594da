#include "tests/support/LogCapture.h"

namespace Kestrion::TestSupport {

LogCapture::LogCapture(int level)
    : m_sink(std::make_shared<CaptureLogSink>())
    , m_previousLevel(Log::globalLevel()) {
    Log::setConsoleEnabled(false);
    Log::setGlobalLevel(level);
    Log::addSink(m_sink);
}

LogCapture::~LogCapture() {
    Log::removeSink(m_sink);
    Log::setGlobalLevel(m_previousLevel);
    Log::setConsoleEnabled(true);
}

} // namespace Kestrion::TestSupport
