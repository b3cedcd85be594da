#include "atracsys/device/AtracsysOptionHelpers.h"

#include "host/core/Log.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <sstream>
#include <vector>

namespace Kestrion::SpryTrack::AtracsysHelpers {

namespace {

// --- Option table ---------------------------------------------------------------------------------

void insertOption(OptionTable& options, const ftkOptionsInfo* info) {
    // An option without a name cannot be asked for by name; std::map::emplace keeps the first id
    // of a name reported twice.
    if (info == nullptr || info->name == nullptr)
        return;
    // The SDK's records are packed: members are copied out, never bound to references.
    const char* name = info->name;
    const std::uint32_t id = info->id;
    options.emplace(name, id);
}

void collectIntoTable(std::uint64_t, void* user, ftkOptionsInfo* info) {
    insertOption(*static_cast<OptionTable*>(user), info);
}

// --- Typed access -----------------------------------------------------------------------------------

ftkError readOption(ftkLibraryImp* lib, std::uint64_t sn, unsigned id, float& value) {
    return ftkGetFloat32(lib, sn, id, &value, ftkOptionGetter::FTK_VALUE);
}

ftkError readOption(ftkLibraryImp* lib, std::uint64_t sn, unsigned id, int& value) {
    return ftkGetInt32(lib, sn, id, &value, ftkOptionGetter::FTK_VALUE);
}

ftkError readOption(ftkLibraryImp* lib, std::uint64_t sn, unsigned id, ftkBuffer& value) {
    return ftkGetData(lib, sn, id, &value);
}

ftkError writeOption(ftkLibraryImp* lib, std::uint64_t sn, unsigned id, const float& value) {
    return ftkSetFloat32(lib, sn, id, value);
}

ftkError writeOption(ftkLibraryImp* lib, std::uint64_t sn, unsigned id, const int& value) {
    return ftkSetInt32(lib, sn, id, value);
}

ftkError writeOption(ftkLibraryImp* lib, std::uint64_t sn, unsigned id, const ftkBuffer& value) {
    ftkBuffer copy = value; // the SDK takes a mutable buffer; the caller's stays untouched
    return ftkSetData(lib, sn, id, &copy);
}

// --- Option listing ---------------------------------------------------------------------------------

struct OptionRecord {
    std::uint32_t id;
    bool readable;
    ftkOptionType type;
    std::string line;
};

const char* typeName(ftkOptionType type) {
    switch (type) {
    case ftkOptionType::FTK_FLOAT32:
        return "FTK_FLOAT32";
    case ftkOptionType::FTK_DATA:
        return "FTK_DATA";
    default:
        return "FTK_INT32";
    }
}

// A missing text puts the stream in its failed state, so nothing more is appended to the line.
void appendText(std::ostringstream& out, const char* text) {
    if (text != nullptr)
        out << text;
    else
        out.setstate(std::ios::badbit);
}

void collectRecord(std::uint64_t, void* user, ftkOptionsInfo* info) {
    if (info == nullptr)
        return;
    const std::uint32_t id = info->id;
    const bool readable = info->status.read != 0;
    const bool writable = info->status.write != 0;
    std::ostringstream line;
    line << "Option (" << id << ") ";
    appendText(line, info->name);
    line << " | Type : " << typeName(info->type) << " | Description : ";
    appendText(line, info->description);
    line << " | Unit: ";
    appendText(line, info->unit);
    line << " | Read access : " << (readable ? "1" : "0") << " | Write access : " << (writable ? "1" : "0");
    static_cast<std::vector<OptionRecord>*>(user)->push_back({id, readable, info->type, line.str()});
}

constexpr std::int32_t intSentinel = std::numeric_limits<std::int32_t>::min();

std::string intBound(std::int32_t value) {
    return value == intSentinel ? "---" : std::to_string(value);
}

// Float bounds are shown truncated toward zero. A value with no 32-bit integer form (NaN, out of
// range) becomes the integer sentinel, as the processor's conversion gives, and so shows "---".
std::int32_t truncateBound(float value) {
    if (std::isnan(value) || value >= 2147483648.0f || value < -2147483648.0f)
        return intSentinel;
    return static_cast<std::int32_t>(value);
}

void appendIntValues(ftkLibraryImp* lib, std::uint64_t sn, std::uint32_t id, std::ostringstream& out) {
    std::int32_t value = intSentinel, minimum = intSentinel, maximum = intSentinel, byDefault = intSentinel;
    if (ftkGetInt32(lib, sn, id, &value, ftkOptionGetter::FTK_VALUE) != ftkError::FTK_OK)
        KESTRION_LOG(Log::Error, "", "Getting option failed");
    if (ftkGetInt32(lib, sn, id, &minimum, ftkOptionGetter::FTK_MIN_VAL) != ftkError::FTK_OK)
        KESTRION_LOG(Log::Debug, "", "Skip minimum value");
    if (ftkGetInt32(lib, sn, id, &maximum, ftkOptionGetter::FTK_MAX_VAL) != ftkError::FTK_OK)
        KESTRION_LOG(Log::Debug, "", "Skip maximum value");
    if (ftkGetInt32(lib, sn, id, &byDefault, ftkOptionGetter::FTK_DEF_VAL) != ftkError::FTK_OK)
        KESTRION_LOG(Log::Debug, "", "Skip default value");
    out << " | Value : " << value << " | Min : " << intBound(minimum) << " | Max: " << intBound(maximum)
        << " | Default : " << intBound(byDefault);
}

void appendFloatValues(ftkLibraryImp* lib, std::uint64_t sn, std::uint32_t id, std::ostringstream& out) {
    const float sentinel = std::numeric_limits<float>::min();
    float value = sentinel, minimum = sentinel, maximum = sentinel, byDefault = sentinel;
    if (ftkGetFloat32(lib, sn, id, &value, ftkOptionGetter::FTK_VALUE) != ftkError::FTK_OK)
        KESTRION_LOG(Log::Error, "", "Getting option failed");
    if (ftkGetFloat32(lib, sn, id, &minimum, ftkOptionGetter::FTK_MIN_VAL) != ftkError::FTK_OK)
        KESTRION_LOG(Log::Debug, "", "Skip minimum value");
    if (ftkGetFloat32(lib, sn, id, &maximum, ftkOptionGetter::FTK_MAX_VAL) != ftkError::FTK_OK)
        KESTRION_LOG(Log::Debug, "", "Skip maximum value");
    if (ftkGetFloat32(lib, sn, id, &byDefault, ftkOptionGetter::FTK_DEF_VAL) != ftkError::FTK_OK)
        KESTRION_LOG(Log::Debug, "", "Skip default value");
    // The bounds are compared with the integer sentinel after truncation, so an unread float
    // bound (the smallest normal float) shows as "0", never as "---".
    out << " | Value : " << value << " | Min : " << intBound(truncateBound(minimum))
        << " | Max: " << intBound(truncateBound(maximum))
        << " | Default : " << intBound(truncateBound(byDefault));
}

} // namespace

OptionTable enumerateOptions(ftkLibraryImp* lib, std::uint64_t sn) {
    OptionTable options;
    if (ftkEnumerateOptions(lib, sn, collectIntoTable, &options) != ftkError::FTK_OK)
        KESTRION_LOG(Log::Error, "", "Enumerating option failed");
    return options;
}

void optionEnumerator(std::uint64_t, void* user, ftkOptionsInfo* info) {
    if (user == nullptr)
        return;
    insertOption(*static_cast<OptionTable*>(user), info);
}

std::unique_ptr<OptionTable> getOptionsForDevice(ftkLibraryImp* lib, std::uint64_t sn) {
    auto options = std::make_unique<OptionTable>();
    if (ftkEnumerateOptions(lib, sn, optionEnumerator, options.get()) != ftkError::FTK_OK)
        return nullptr;
    return options;
}

template <typename T>
std::optional<T> getOption(ftkLibraryImp* lib, std::uint64_t sn, const OptionTable& options,
                           const std::string& name) {
    const auto found = options.find(name);
    if (found == options.end()) {
        KESTRION_LOG(Log::Error, "AtracsysHelpers",
                     "Failed to get value - option < " << name << " > not available");
        return std::nullopt;
    }
    // ftkBuffer is 10 KiB: it is read straight into the result's storage.
    std::optional<T> value{T{}};
    if (readOption(lib, sn, found->second, *value) != ftkError::FTK_OK)
        return std::nullopt;
    return value;
}

template <typename T>
bool setOption(ftkLibraryImp* lib, std::uint64_t sn, const OptionTable& options, const std::string& name,
               const T& value) {
    const auto found = options.find(name);
    if (found == options.end()) {
        KESTRION_LOG(Log::Error, "AtracsysHelpers",
                     "Failed to set value - option < " << name << " > not available");
        return false;
    }
    return writeOption(lib, sn, found->second, value) == ftkError::FTK_OK;
}

template std::optional<float> getOption<float>(ftkLibraryImp*, std::uint64_t, const OptionTable&,
                                               const std::string&);
template std::optional<int> getOption<int>(ftkLibraryImp*, std::uint64_t, const OptionTable&,
                                           const std::string&);
template std::optional<ftkBuffer> getOption<ftkBuffer>(ftkLibraryImp*, std::uint64_t, const OptionTable&,
                                                       const std::string&);
template bool setOption<float>(ftkLibraryImp*, std::uint64_t, const OptionTable&, const std::string&,
                               const float&);
template bool setOption<int>(ftkLibraryImp*, std::uint64_t, const OptionTable&, const std::string&,
                             const int&);
template bool setOption<ftkBuffer>(ftkLibraryImp*, std::uint64_t, const OptionTable&, const std::string&,
                                   const ftkBuffer&);

void logAvailableOptions(ftkLibraryImp* lib, std::uint64_t sn) {
    std::vector<OptionRecord> records;
    if (ftkEnumerateOptions(lib, sn, collectRecord, &records) != ftkError::FTK_OK) {
        KESTRION_LOG(Log::Error, "", "Enumerating option failed");
        return;
    }
    for (const OptionRecord& record : records) {
        std::ostringstream line;
        line << record.line;
        if (record.readable) {
            switch (record.type) {
            case ftkOptionType::FTK_INT32:
                appendIntValues(lib, sn, record.id, line);
                break;
            case ftkOptionType::FTK_FLOAT32:
                appendFloatValues(lib, sn, record.id, line);
                break;
            case ftkOptionType::FTK_DATA:
                line << " | Value : ---";
                break;
            default:
                KESTRION_LOG(Log::Error, "", "Unknown option type");
                break;
            }
        }
        KESTRION_LOG(Log::Info, "", line.str());
    }
}

std::unique_ptr<unsigned> getIntegrationTimeOptionId(ftkLibraryImp* lib, std::uint64_t sn) {
    // Fetched once per process, from the first device asked, and reused for every device after
    // it. Only the creation of this static is synchronised: callers use one thread at a time
    // (the stream's open and its settings changes, both under the device mutex).
    static std::unique_ptr<OptionTable> cachedOptions;
    if (!cachedOptions) {
        cachedOptions = getOptionsForDevice(lib, sn);
        if (!cachedOptions)
            return nullptr;
    }
    // Inserting access: a device without the option leaves it in the table with id 0.
    return std::make_unique<unsigned>((*cachedOptions)[integrationTimeOptionName]);
}

bool getIntegrationTime(ftkLibraryImp* lib, std::uint64_t sn, int& value) {
    const std::unique_ptr<unsigned> id = getIntegrationTimeOptionId(lib, sn);
    if (!id)
        return false;
    return ftkGetInt32(lib, sn, *id, &value, ftkOptionGetter::FTK_VALUE) == ftkError::FTK_OK;
}

bool setIntegrationTime(ftkLibraryImp* lib, std::uint64_t sn, int value) {
    const std::unique_ptr<unsigned> id = getIntegrationTimeOptionId(lib, sn);
    if (!id)
        return false;
    return ftkSetInt32(lib, sn, *id, value) == ftkError::FTK_OK;
}

} // namespace Kestrion::SpryTrack::AtracsysHelpers
