#pragma once

#include <string>

namespace Kestrion {

/// Base of factories that describe data items for display (annotations drawn over data in the
/// desktop host's views). A plugin hands one, or none, to the host with
/// KestrionLibPlugin::registerFactories; the FactoryRegistry keeps it as the plugin's. The
/// annotation interface itself belongs to the desktop host's views.
class DataAnnotationFactory {
public:
    explicit DataAnnotationFactory(std::string prefix);
    virtual ~DataAnnotationFactory();
    DataAnnotationFactory(const DataAnnotationFactory&) = delete;
    DataAnnotationFactory& operator=(const DataAnnotationFactory&) = delete;

    const std::string& prefix() const { return m_prefix; }

private:
    std::string m_prefix;
};

} // namespace Kestrion
