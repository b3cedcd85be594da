#pragma once

#include "host/core/CaptureLogSink.h"
#include "host/core/Log.h"

#include <memory>

namespace Kestrion::TestSupport {

/// Captures every log record (all levels) for the lifetime of the object and keeps the
/// console quiet; restores the previous global level afterwards.
class LogCapture {
public:
    explicit LogCapture(int level = Log::Trace);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    CaptureLogSink& sink() { return *m_sink; }
    CaptureLogSink* operator->() { return m_sink.get(); }

private:
    std::shared_ptr<CaptureLogSink> m_sink;
    int m_previousLevel;
};

} // namespace Kestrion::TestSupport
