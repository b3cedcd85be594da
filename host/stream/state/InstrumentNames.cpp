#include "host/stream/state/InstrumentNames.h"

#include <cctype>

namespace Kestrion {

namespace {
constexpr std::size_t kMaxNameLength = 64;

bool isAsciiLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isAsciiDigit(char c) {
    return c >= '0' && c <= '9';
}
} // namespace

std::optional<std::string> InstrumentNames::nameProblem(const std::string& name) {
    if (name.empty())
        return std::string("an instrument name cannot be empty");
    if (name.size() > kMaxNameLength)
        return "instrument name '" + name + "' is longer than " + std::to_string(kMaxNameLength) +
               " characters";
    for (char c : name)
        if (!isAsciiLetter(c) && !isAsciiDigit(c))
            return "instrument name '" + name +
                   "' may hold only letters and digits (as in StylusToReference)";
    if (!(name[0] >= 'A' && name[0] <= 'Z'))
        return "instrument name '" + name +
               "' must begin with an upper-case letter (as in StylusToReference)";
    return std::nullopt;
}

std::string InstrumentNames::safeName(const std::string& instrumentId) {
    std::string safe;
    for (char c : instrumentId)
        if (isAsciiLetter(c) || isAsciiDigit(c))
            safe += c;
    if (safe.empty() || !isAsciiLetter(safe[0]))
        safe.insert(0, "Tool");
    safe[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(safe[0])));
    return safe;
}

std::optional<std::string> InstrumentNames::setName(const std::string& instrumentId,
                                                    const std::string& name) {
    if (name.empty()) {
        m_names.erase(instrumentId);
        return std::nullopt;
    }
    if (auto problem = nameProblem(name))
        return problem;
    for (const auto& [id, other] : m_names)
        if (other == name && id != instrumentId)
            return "instrument name '" + name + "' is already the name of " + id;
    m_names[instrumentId] = name;
    return std::nullopt;
}

std::string InstrumentNames::userName(const std::string& instrumentId) const {
    const auto it = m_names.find(instrumentId);
    return it == m_names.end() ? std::string() : it->second;
}

std::string InstrumentNames::transformName(const std::string& instrumentId) const {
    const auto it = m_names.find(instrumentId);
    return it == m_names.end() ? safeName(instrumentId) : it->second;
}

std::string InstrumentNames::displayName(const std::string& instrumentId) const {
    const auto it = m_names.find(instrumentId);
    return it == m_names.end() ? instrumentId : it->second;
}

} // namespace Kestrion
