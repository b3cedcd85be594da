#pragma once

#include <ftkInterface.h>

#include <cstdint>
#include <optional>
#include <string>

namespace Kestrion::Simulator {

/// One scripted device fault, as a scene or the control interface describes it.
struct FaultRule {
    enum class Kind {
        FetchError,              ///< ftkGetLastFrame returns `code` and delivers nothing.
        Disconnection,           ///< From the trigger on, the device is gone: FTK_ERR_DISCONNECTION.
        MarkersStatus,           ///< Frames are delivered with the marker status `markersStatus`.
        NoDevice,                ///< The device is not enumerated and its serial is unknown.
        EnumerationStatus,       ///< ftkEnumerateDevices returns `code` (after reporting, if reportDevices).
        OptionEnumerationStatus, ///< ftkEnumerateOptions returns `code` (after reporting the options).
        OptionRefusal,           ///< Reads and/or writes of one option (or all) return `code`.
        GeometryRefusal,         ///< ftkSetGeometry or ftkClearGeometry returns `code`.
        MalformedOption,         ///< The option enumeration reports one option malformed.
    };
    enum class Operation { Get, Set, Both };
    enum class Malformation { NullName, UnknownType, DuplicateName, NullDescription, NullUnit };
    /// A set of malformations, one bit each (1 << Malformation).
    using Malformations = std::uint32_t;
    static constexpr Malformations bit(Malformation m) { return 1u << static_cast<unsigned>(m); }

    Kind kind = Kind::FetchError;

    // Trigger. Without atFetch and atTime the fault starts at once. Fetches are counted per
    // device from 1 (every ftkGetLastFrame call on it); times are device time in seconds.
    std::optional<std::uint64_t> atFetch;
    std::optional<double> atTimeS;
    std::optional<double> durationS; ///< With atTimeS: active while atTimeS <= t < atTimeS + durationS.
    /// Affected calls; negative: unlimited. Unset: one fetch for FetchError and MarkersStatus
    /// without a duration, unlimited otherwise.
    std::optional<std::int64_t> count;

    ftkError code = ftkError::FTK_ERR_INTERNAL;
    ftkQueryStatus markersStatus = ftkQueryStatus::QS_ERR_OVERFLOW;
    bool reportDevices = true; ///< EnumerationStatus: devices are still reported before the status.

    std::optional<std::uint32_t> optionId; ///< OptionRefusal, MalformedOption: the option (by id ...
    std::string optionName;                ///< ... or by name); neither: every option.
    Operation operation = Operation::Set;
    std::optional<ftkOptionGetter> getter; ///< OptionRefusal of reads: only this getter; none: every one.
    Malformation malformation = Malformation::NullName;

    std::optional<std::uint32_t> geometryId; ///< GeometryRefusal: the geometry; none: every one.
    bool onClear = false; ///< GeometryRefusal: refuse ftkClearGeometry, not ftkSetGeometry.
};

} // namespace Kestrion::Simulator
