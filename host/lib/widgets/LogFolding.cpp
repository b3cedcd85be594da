#include "host/lib/widgets/LogFolding.h"

#include "host/core/Log.h"
#include "host/core/LogRecord.h"

#include <cctype>

namespace Kestrion {

std::string LogFolding::key(const LogRecord& record) {
    std::string key = std::to_string(record.level) + '\n' + record.category + '\n';
    if (record.level < Log::Warning)
        return key + record.message;
    key.reserve(key.size() + record.message.size());
    bool inNumber = false;
    for (const char c : record.message) {
        const bool digit = std::isdigit(static_cast<unsigned char>(c)) != 0;
        if (!digit)
            key += c;
        else if (!inNumber)
            key += '#'; // a run of digits, whatever its value
        inNumber = digit;
    }
    return key;
}

} // namespace Kestrion
