#include "simulator/src/ErrorCodes.h"

#include <cstdio>
#include <cstring>

namespace Kestrion::Simulator {

namespace {

struct Entry {
    ftkError code;
    const char* name;
};

#define FTK_CODE(x)                                                                                          \
    { ftkError::x, #x }
constexpr Entry Table[] = {
    FTK_CODE(FTK_WAR_OPT_GLOBAL_ONLY),
    FTK_CODE(FTK_WAR_OPT_NO_OP),
    FTK_CODE(FTK_WAR_OPT_VAL_RANGE),
    FTK_CODE(FTK_WAR_CALIB_AUTHENTICATION),
    FTK_CODE(FTK_WAR_USB_TOO_SLOW),
    FTK_CODE(FTK_WAR_NOT_EXISTING),
    FTK_CODE(FTK_WAR_ALREADY_PRESENT),
    FTK_CODE(FTK_WAR_REJECTED_PIC),
    FTK_CODE(FTK_WAR_SHOCK_DETECTED),
    FTK_CODE(FTK_WAR_SN_ABSENT),
    FTK_CODE(FTK_WAR_TEMP_HIGH),
    FTK_CODE(FTK_WAR_TEMP_LOW),
    FTK_CODE(FTK_WAR_TEMP_INVALID),
    FTK_CODE(FTK_WAR_FILE_NOT_FOUND),
    FTK_CODE(FTK_WAR_GEOM_ID),
    FTK_CODE(FTK_WAR_FRAME),
    FTK_CODE(FTK_WAR_NOT_SUPPORTED),
    FTK_CODE(FTK_WAR_NO_FRAME),
    FTK_CODE(FTK_OK),
    FTK_CODE(FTK_ERR_INV_PTR),
    FTK_CODE(FTK_ERR_INV_SN),
    FTK_CODE(FTK_ERR_INV_INDEX),
    FTK_CODE(FTK_ERR_INTERNAL),
    FTK_CODE(FTK_ERR_WRITE),
    FTK_CODE(FTK_ERR_READ),
    FTK_CODE(FTK_ERR_IMG_DEC),
    FTK_CODE(FTK_ERR_IMG_FMT),
    FTK_CODE(FTK_ERR_VERSION),
    FTK_CODE(FTK_ERR_INIT),
    FTK_CODE(FTK_ERR_IM_TOO_SMALL),
    FTK_CODE(FTK_ERR_INV_INI_FILE),
    FTK_CODE(FTK_ERR_SEG_OVERFLOW),
    FTK_CODE(FTK_ERR_IMPAIRING_CALIB),
    FTK_CODE(FTK_ERR_GEOM_PTS),
    FTK_CODE(FTK_ERR_GEOM_REGISTERED),
    FTK_CODE(FTK_ERR_SYNC),
    FTK_CODE(FTK_ERR_COMP_ALGO),
    FTK_CODE(FTK_ERR_DISCONNECTION),
    FTK_CODE(FTK_ERR_INV_OPT),
    FTK_CODE(FTK_ERR_INV_OPT_ACC),
    FTK_CODE(FTK_ERR_INV_OPT_VAL),
    FTK_CODE(FTK_ERR_INV_OPT_PAR),
};
#undef FTK_CODE

} // namespace

const char* ErrorCodes::name(ftkError code) {
    for (const Entry& e : Table) {
        if (e.code == code) {
            return e.name;
        }
    }
    return nullptr;
}

std::optional<ftkError> ErrorCodes::fromName(const std::string& name) {
    for (const Entry& e : Table) {
        if (name == e.name) {
            return e.code;
        }
    }
    return std::nullopt;
}

std::optional<ftkError> ErrorCodes::fromValue(long long value) {
    for (const Entry& e : Table) {
        if (static_cast<long long>(e.code) == value) {
            return e.code;
        }
    }
    return std::nullopt;
}

std::string ErrorCodes::serialText(std::uint64_t serial) {
    char text[24];
    std::snprintf(text, sizeof(text), "0x%016llx", static_cast<unsigned long long>(serial));
    return text;
}

} // namespace Kestrion::Simulator
