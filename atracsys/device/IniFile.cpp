#include "atracsys/device/IniFile.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <new>

namespace Kestrion::SpryTrack::AtracsysHelpers {

namespace {

constexpr std::size_t notFound = static_cast<std::size_t>(-1);

void removeCarriageReturns(std::string& line) {
    line.erase(std::remove(line.begin(), line.end(), '\r'), line.end());
}

bool isSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

void trim(std::string& line) {
    auto end = std::find_if_not(line.rbegin(), line.rend(), isSpace).base();
    line.erase(end, line.end());
    auto begin = std::find_if_not(line.begin(), line.end(), isSpace);
    line.erase(line.begin(), begin);
}

} // namespace

bool IniFile::parse(char* data, std::size_t size) {
    sections.clear();
    currentSection.clear();
    while (size != 0) {
        char eolChar = 0;
        const std::size_t eol = findEOL(eolChar, data, size);
        if (eol == notFound) {
            // No terminator in the remaining bytes: the rest of the text is one last line.
            std::string line(data);
            removeCarriageReturns(line);
            return parseLine(line) != 0;
        }
        if (eol != 0) {
            std::string line(data, eol);
            removeCarriageReturns(line);
            if (parseLine(line) == 0)
                return false;
        }
        if (eolChar == '\0' || eol == size)
            return true;
        data += eol + 1;
        size -= eol + 1;
    }
    return true;
}

int IniFile::parseLine(std::string& line) {
    const std::size_t open = line.find('[');
    const std::size_t close = line.rfind(']');
    const std::size_t equals = line.find('=');

    // A line holding both brackets is a header, even when it would also be a key line.
    if (open != std::string::npos && close != std::string::npos) {
        const std::size_t length = close > open ? close - open - 1 : std::string::npos;
        currentSection = line.substr(open + 1, length);
        sections[currentSection];
        return 1;
    }
    if (equals != std::string::npos && !currentSection.empty()) {
        sections[currentSection][line.substr(0, equals)] = line.substr(equals + 1);
        return 1;
    }
    trim(line);
    if (line.empty() || line.front() == ';')
        return 1;
    return 0;
}

std::size_t IniFile::findEOL(char& eolChar, char* data, std::size_t size) {
    if (size < 1)
        return notFound;
    for (std::size_t i = 0; i < size; ++i) {
        if (data[i] == '\0' || data[i] == '\n') {
            eolChar = data[i];
            return i;
        }
    }
    return notFound;
}

std::string IniFile::toText() const {
    // Lines are appended whole: a key or value of any length is written out unabridged.
    std::string text;
    for (const auto& [name, keys] : sections) {
        text += '[';
        text += name;
        text += "]\n";
        for (const auto& [key, value] : keys) {
            text += key;
            text += '=';
            text += value;
            text += '\n';
        }
    }
    return text;
}

bool IniFile::toBuffer(char** out, std::size_t& size) {
    if (out == nullptr)
        return false;
    const std::string text = toText();
    size = text.size() + 1;
    char* buffer = new (std::nothrow) char[size];
    if (buffer == nullptr)
        return false;
    std::memcpy(buffer, text.c_str(), size);
    *out = buffer;
    return true;
}

bool IniFile::save(std::string path) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr)
        return false;
    const std::string text = toText();
    std::fwrite(text.data(), 1, text.size(), file);
    std::fclose(file);
    return true;
}

} // namespace Kestrion::SpryTrack::AtracsysHelpers
