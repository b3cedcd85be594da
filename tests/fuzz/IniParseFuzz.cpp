// Fuzz entry point for the INI parser: any byte sequence, parsed and written back.
#include "atracsys/device/IniFile.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

using Kestrion::SpryTrack::AtracsysHelpers::IniFile;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The parser reads an unterminated last line up to the next NUL: give it the terminated
    // buffer its callers provide.
    std::string text(reinterpret_cast<const char*>(data), size);
    IniFile ini;
    ini.parse(text.data(), text.size());

    char* raw = nullptr;
    std::size_t bufferSize = 0;
    if (!ini.toBuffer(&raw, bufferSize))
        std::abort();
    std::unique_ptr<char[]> buffer(raw);
    if (bufferSize == 0 || buffer[bufferSize - 1] != '\0')
        std::abort();

    // Whatever was read, the written text parses back to the same model.
    IniFile again;
    if (!again.parse(buffer.get(), bufferSize) || again.sections != ini.sections)
        std::abort();
    return 0;
}
