#include "simulator/src/LibraryHandle.h"

#include "simulator/src/Device.h"
#include "simulator/src/ErrorCodes.h"
#include "simulator/src/OptionCatalog.h"

namespace Kestrion::Simulator {

namespace {

std::string escaped(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        switch (c) {
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '&':
            out += "&amp;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string entry(const char* element, ftkError code, const std::string& message) {
    const char* name = ErrorCodes::name(code);
    return std::string("<") + element + " code=\"" + std::to_string(static_cast<int>(code)) + "\" name=\"" +
           (name ? name : "UNKNOWN") + "\">" + escaped(message) + "</" + element + ">";
}

} // namespace

LibraryHandle::LibraryHandle(const std::vector<std::shared_ptr<Device>>& devices)
    : m_globals(OptionCatalog::globalOptions()) {
    for (const auto& device : devices) {
        m_sessions.push_back(std::make_unique<Session>(device));
    }
}

Session* LibraryHandle::session(std::uint64_t serial) {
    for (const auto& s : m_sessions) {
        if (s->device().serial() == serial) {
            return s->device().hidden() ? nullptr : s.get();
        }
    }
    return nullptr;
}

ftkError LibraryHandle::report(ftkError status, const std::string& message) {
    if (status == ftkError::FTK_OK) {
        return status;
    }
    std::lock_guard<std::mutex> lock(m_errorMutex);
    ++m_reports;
    if (static_cast<int>(status) > 0) {
        m_error = status;
        m_errorMessage = message;
    } else {
        m_warning = status;
        m_warningMessage = message;
    }
    return status;
}

std::string LibraryHandle::errorText() const {
    std::lock_guard<std::mutex> lock(m_errorMutex);
    std::string text = "<ftkError>\n<errors>";
    if (m_error != ftkError::FTK_OK) {
        text += entry("error", m_error, m_errorMessage);
    }
    text += "</errors>\n<warnings>";
    if (m_warning != ftkError::FTK_OK) {
        text += entry("warning", m_warning, m_warningMessage);
    }
    text += "</warnings>\n<messages>";
    text +=
        m_reports == 0 ? "No error reported" : std::to_string(m_reports) + " failures and warnings reported";
    text += "</messages>\n</ftkError>";
    return text;
}

} // namespace Kestrion::Simulator
