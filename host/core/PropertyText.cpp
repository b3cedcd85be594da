#include "host/core/PropertyText.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <limits>

namespace Kestrion::PropertyTextDetail {

namespace {

bool isSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

std::string trimmed(const std::string& text) {
    std::size_t begin = 0;
    std::size_t end = text.size();
    while (begin < end && isSpace(text[begin]))
        ++begin;
    while (end > begin && isSpace(text[end - 1]))
        --end;
    return text.substr(begin, end - begin);
}

// from_chars takes no leading '+'; accept one, as people write it.
std::string withoutPlus(const std::string& text) {
    if (text.size() > 1 && text[0] == '+' && text[1] != '-' && text[1] != '+')
        return text.substr(1);
    return text;
}

template <class T>
bool parseWhole(const std::string& rawText, T& out) {
    const std::string text = withoutPlus(trimmed(rawText));
    if (text.empty())
        return false;
    T value{};
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec != std::errc() || result.ptr != text.data() + text.size())
        return false;
    out = value;
    return true;
}

template <class T>
std::string formatShortest(T value) {
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

} // namespace

bool parseSigned(const std::string& text, long long min, long long max, long long& out) {
    long long value = 0;
    if (!parseWhole(text, value) || value < min || value > max)
        return false;
    out = value;
    return true;
}

bool parseUnsigned(const std::string& text, unsigned long long max, unsigned long long& out) {
    unsigned long long value = 0;
    if (trimmed(text).rfind('-', 0) == 0 || !parseWhole(text, value) || value > max)
        return false;
    out = value;
    return true;
}

bool parseDouble(const std::string& text, double& out) {
    return parseWhole(text, out);
}

bool parseFloat(const std::string& text, float& out) {
    return parseWhole(text, out);
}

bool parseBool(const std::string& rawText, bool& out) {
    std::string text = trimmed(rawText);
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (text == "true" || text == "1") {
        out = true;
        return true;
    }
    if (text == "false" || text == "0") {
        out = false;
        return true;
    }
    return false;
}

std::string formatDouble(double value) {
    return formatShortest(value);
}

std::string formatFloat(float value) {
    return formatShortest(value);
}

std::vector<std::string> words(const std::string& text) {
    std::vector<std::string> result;
    std::size_t i = 0;
    while (i < text.size()) {
        while (i < text.size() && isSpace(text[i]))
            ++i;
        const std::size_t begin = i;
        while (i < text.size() && !isSpace(text[i]))
            ++i;
        if (i > begin)
            result.push_back(text.substr(begin, i - begin));
    }
    return result;
}

bool isValid(const std::string& type, const std::string& text) {
    if (type == "bool") {
        bool value;
        return parseBool(text, value);
    }
    if (type == "int") {
        long long value;
        return parseSigned(text, std::numeric_limits<long long>::min(), std::numeric_limits<long long>::max(),
                           value);
    }
    if (type == "unsigned") {
        unsigned long long value;
        return parseUnsigned(text, std::numeric_limits<unsigned long long>::max(), value);
    }
    if (type == "double" || type == "float") {
        double value;
        return parseDouble(text, value);
    }
    if (type == "vector" || type == "matrix") {
        const auto parts = words(text);
        double value;
        for (const auto& part : parts)
            if (!parseDouble(part, value))
                return false;
        return !parts.empty();
    }
    return true; // "string" and tags this version does not know
}

} // namespace Kestrion::PropertyTextDetail
