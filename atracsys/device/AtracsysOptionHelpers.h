#pragma once

#include <ftkInterface.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace Kestrion::SpryTrack::AtracsysHelpers {

/// Option name to option id, as the device reports them. A name reported twice keeps its first id.
using OptionTable = std::map<std::string, unsigned>;

/// Name of the option that holds the image integration time (microseconds).
inline constexpr const char* integrationTimeOptionName = "Image Integration Time";

/// Collects the options of device `sn`. Logs "Enumerating option failed" when the SDK reports a
/// failure and returns whatever was collected.
OptionTable enumerateOptions(ftkLibraryImp* lib, std::uint64_t sn);

/// Option enumeration callback: inserts the option's name and id into the OptionTable that
/// `user` points to; a null `user` is ignored.
void optionEnumerator(std::uint64_t sn, void* user, ftkOptionsInfo* info);

/// The options of device `sn`, or null (silently) when the enumeration fails.
std::unique_ptr<OptionTable> getOptionsForDevice(ftkLibraryImp* lib, std::uint64_t sn);

/// Reads the current value of the named option (T: float, int or ftkBuffer). An unknown name is
/// logged; a failed read returns empty silently.
template <typename T>
std::optional<T> getOption(ftkLibraryImp* lib, std::uint64_t sn, const OptionTable& options,
                           const std::string& name);

/// Writes the named option (T: float, int or ftkBuffer); true when the SDK accepts the value.
/// An unknown name is logged; a refused write is not.
template <typename T>
bool setOption(ftkLibraryImp* lib, std::uint64_t sn, const OptionTable& options, const std::string& name,
               const T& value);

extern template std::optional<float> getOption<float>(ftkLibraryImp*, std::uint64_t, const OptionTable&,
                                                      const std::string&);
extern template std::optional<int> getOption<int>(ftkLibraryImp*, std::uint64_t, const OptionTable&,
                                                  const std::string&);
extern template std::optional<ftkBuffer> getOption<ftkBuffer>(ftkLibraryImp*, std::uint64_t,
                                                              const OptionTable&, const std::string&);
extern template bool setOption<float>(ftkLibraryImp*, std::uint64_t, const OptionTable&, const std::string&,
                                      const float&);
extern template bool setOption<int>(ftkLibraryImp*, std::uint64_t, const OptionTable&, const std::string&,
                                    const int&);
extern template bool setOption<ftkBuffer>(ftkLibraryImp*, std::uint64_t, const OptionTable&,
                                          const std::string&, const ftkBuffer&);

/// Logs every option of device `sn` with its type, description, unit, access and, when readable,
/// its current, minimum, maximum and default values.
void logAvailableOptions(ftkLibraryImp* lib, std::uint64_t sn);

/// Id of the "Image Integration Time" option, or null when the options cannot be enumerated.
/// The option table is fetched once per process, from the first device asked, and reused for
/// every later call whatever its serial number. A device without the option yields id 0.
/// Not thread-safe beyond the table's creation: call from one thread at a time.
std::unique_ptr<unsigned> getIntegrationTimeOptionId(ftkLibraryImp* lib, std::uint64_t sn);

/// Reads the image integration time (microseconds); true when the SDK read succeeded.
bool getIntegrationTime(ftkLibraryImp* lib, std::uint64_t sn, int& value);

/// Writes the image integration time (microseconds); true when the SDK accepted it.
bool setIntegrationTime(ftkLibraryImp* lib, std::uint64_t sn, int value);

} // namespace Kestrion::SpryTrack::AtracsysHelpers
