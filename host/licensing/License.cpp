#include "host/licensing/License.h"

#include "host/core/Time.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace Kestrion {

namespace {

const char* const Header = "KESTRION-LICENSE 1";

std::string trimmed(const std::string& s) {
    const char* blanks = " \t\r\n";
    const auto first = s.find_first_not_of(blanks);
    if (first == std::string::npos)
        return {};
    const auto last = s.find_last_not_of(blanks);
    return s.substr(first, last - first + 1);
}

// Days since 1970-01-01 of a proleptic Gregorian date.
long daysFromCivil(long y, unsigned m, unsigned d) {
    y -= m <= 2;
    const long era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<long>(doe) - 719468;
}

bool isLeap(long y) {
    return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

} // namespace

std::optional<long> License::parseDate(const std::string& text) {
    if (text.size() != 10 || text[4] != '-' || text[7] != '-')
        return std::nullopt;
    for (std::size_t i : {0, 1, 2, 3, 5, 6, 8, 9})
        if (text[i] < '0' || text[i] > '9')
            return std::nullopt;
    const long year = std::stol(text.substr(0, 4));
    const unsigned month = static_cast<unsigned>(std::stoul(text.substr(5, 2)));
    const unsigned day = static_cast<unsigned>(std::stoul(text.substr(8, 2)));
    static const unsigned monthDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month < 1 || month > 12 || day < 1)
        return std::nullopt;
    const unsigned maxDay = monthDays[month - 1] + (month == 2 && isLeap(year) ? 1 : 0);
    if (day > maxDay)
        return std::nullopt;
    return daysFromCivil(year, month, day);
}

long License::today() {
    return static_cast<long>(Time::utcMilliseconds() / 86400000ull);
}

std::optional<License> License::parse(const std::string& text, std::string* error) {
    auto fail = [error](int line, const std::string& problem) -> std::optional<License> {
        if (error)
            *error = "line " + std::to_string(line) + ": " + problem;
        return std::nullopt;
    };

    License license;
    bool headerSeen = false;
    bool licenseeSeen = false;
    std::istringstream in(text);
    std::string raw;
    int lineNumber = 0;
    while (std::getline(in, raw)) {
        ++lineNumber;
        const std::string line = trimmed(raw);
        if (line.empty() || line[0] == '#')
            continue;
        if (!headerSeen) {
            if (line != Header)
                return fail(lineNumber, std::string("expected \"") + Header + "\"");
            headerSeen = true;
            continue;
        }
        const auto eq = line.find('=');
        if (eq == std::string::npos)
            return fail(lineNumber, "expected \"key = value\"");
        const std::string key = trimmed(line.substr(0, eq));
        const std::string value = trimmed(line.substr(eq + 1));
        if (key == "feature") {
            if (value.empty())
                return fail(lineNumber, "empty feature name");
            license.m_features.push_back(value);
        } else if (key == "licensee") {
            if (licenseeSeen)
                return fail(lineNumber, "licensee given twice");
            licenseeSeen = true;
            license.m_licensee = value;
        } else if (key == "expires") {
            if (license.m_expiryDay)
                return fail(lineNumber, "expires given twice");
            license.m_expiryDay = parseDate(value);
            if (!license.m_expiryDay)
                return fail(lineNumber, "expiry date \"" + value + "\" is not a valid YYYY-MM-DD date");
            license.m_expiryText = value;
        } else {
            return fail(lineNumber, "unknown key \"" + key + "\"");
        }
    }
    if (!headerSeen)
        return fail(lineNumber, std::string("no \"") + Header + "\" header");
    return license;
}

std::optional<License> License::read(const std::string& path, std::string* error) {
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec)) {
        if (error)
            *error = "is a directory";
        return std::nullopt;
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        if (error)
            *error = std::strerror(errno);
        return std::nullopt;
    }
    std::ostringstream text;
    text << file.rdbuf();
    if (file.bad()) {
        if (error)
            *error = "read error";
        return std::nullopt;
    }
    return parse(text.str(), error);
}

bool License::isValidOn(long day) const {
    return !m_expiryDay || day <= *m_expiryDay;
}

bool License::lists(const std::string& feature) const {
    for (const auto& f : m_features)
        if (f == feature)
            return true;
    return false;
}

} // namespace Kestrion
