#pragma once

#include "host/stream/DataComponent.h"

#include <map>
#include <optional>
#include <string>

namespace Kestrion {

/// The names a user gave to instruments ("atracsys-1000" is "Stylus"), and the one rule by which
/// every output that needs a transform name gets one. A name is letters and digits beginning with
/// an upper-case letter, so that it survives the field's transform-name rule unchanged
/// (`<From>To<To>Transform`, first letter upper case, matched case-sensitively), and is unique.
/// An instrument without a name is known by its id, and where a name-safe form is needed by
/// safeName(id) ("atracsys-1000" gives "Atracsys1000").
///
/// A frame carries the names in force when it was made (TrackingStream::completeFrame), so that
/// every output of that frame uses the same names.
class InstrumentNames : public DataComponent {
public:
    /// Why a name cannot be used (in words, naming it), or none when it can.
    static std::optional<std::string> nameProblem(const std::string& name);
    /// Letters and digits of the id, its first letter upper case, "Tool" before an id that does not
    /// begin with a letter.
    static std::string safeName(const std::string& instrumentId);

    /// Names an instrument (an empty name removes its name). Refused, with the reason, for a bad
    /// name or a name another instrument already has; nothing changes then.
    std::optional<std::string> setName(const std::string& instrumentId, const std::string& name);

    /// The user's name of that instrument, or empty.
    std::string userName(const std::string& instrumentId) const;
    /// The user's name, else safeName(id): what transform names and topic names are built from.
    std::string transformName(const std::string& instrumentId) const;
    /// The user's name, else the id: what tables and logs show.
    std::string displayName(const std::string& instrumentId) const;

    const std::map<std::string, std::string>& names() const { return m_names; }
    bool empty() const { return m_names.empty(); }

private:
    std::map<std::string, std::string> m_names; // id -> name
};

} // namespace Kestrion
