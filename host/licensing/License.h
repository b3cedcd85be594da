#pragma once

#include <optional>
#include <string>
#include <vector>

namespace Kestrion {

/// A licence: who it is for, until when, and which features it covers.
///
/// Licence file format (UTF-8 text, one statement a line):
///
///     KESTRION-LICENSE 1
///     # comment
///     licensee = Example Hospital, Neurosurgery
///     expires = 2031-12-31
///     feature = Atracsys
///     feature = Another.Feature
///
/// - The first line that is neither blank nor a comment must be exactly "KESTRION-LICENSE 1".
/// - Lines starting with '#' (after leading blanks) and blank lines are ignored.
/// - Every other line is "key = value"; blanks around key and value are ignored.
///   Keys: "licensee" (once, optional), "expires" (once, optional, YYYY-MM-DD: the last day on
///   which the licence is valid, UTC) and "feature" (any number of times, one feature each).
/// - Feature names are compared exactly (case and punctuation matter).
/// - Anything else (unknown key, missing '=', empty feature, bad date, repeated licensee or
///   expires) makes the whole file invalid: parse() names the line and the problem.
class License {
public:
    /// Parses a licence text; on failure returns nothing and sets *error (if given) to
    /// "line N: problem".
    static std::optional<License> parse(const std::string& text, std::string* error = nullptr);
    /// Reads and parses a licence file; *error names the problem (unreadable file or bad line).
    static std::optional<License> read(const std::string& path, std::string* error = nullptr);

    const std::string& licensee() const { return m_licensee; }
    const std::vector<std::string>& features() const { return m_features; }
    /// The last valid day as days since 1970-01-01, if the licence expires.
    std::optional<long> expiryDay() const { return m_expiryDay; }
    /// The expiry date as written in the file ("" when the licence does not expire).
    const std::string& expiryText() const { return m_expiryText; }

    /// True when the licence has not expired on the given day (days since 1970-01-01, UTC).
    bool isValidOn(long day) const;
    /// True when the feature is listed (regardless of expiry).
    bool lists(const std::string& feature) const;

    /// Days since 1970-01-01 of a "YYYY-MM-DD" date; nothing for a malformed or impossible date.
    static std::optional<long> parseDate(const std::string& text);
    /// Today as days since 1970-01-01, UTC.
    static long today();

private:
    std::string m_licensee;
    std::vector<std::string> m_features;
    std::optional<long> m_expiryDay;
    std::string m_expiryText;
};

} // namespace Kestrion
