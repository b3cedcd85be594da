// A plugin for the host's own tests, compiled once per variant with the TEST_PLUGIN_* definitions
// of CMakeLists.txt (id, factory prefix, dependencies, descriptor, init() result, licence, ...).
#include "host/core/Algorithm.h"
#include "host/core/Log.h"
#include "host/core/Parameter.h"
#include "host/core/Properties.h"
#include "host/lib/AlgorithmController.h"
#include "host/lib/AlgorithmControllerFactory.h"
#include "host/lib/AlgorithmFactory.h"
#include "host/lib/DataAnnotationFactory.h"
#include "host/lib/FactoryRegistry.h"
#include "host/lib/KestrionLibPlugin.h"
#include "host/lib/PluginAutoRegistrationGuard.h"
#include "host/lib/PluginExport.h"
#include "host/lib/WorkspaceConversionRegistry.h"
#include "host/licensing/Licensing.h"

#ifndef TEST_PLUGIN_DESCRIPTOR
#define TEST_PLUGIN_DESCRIPTOR KESTRION_PLUGIN_DESCRIPTOR
#endif

namespace {

const char* const Category = "TestPlugin";

/// Logs its settings when computed; fails on request.
class RecorderAlgorithm : public Kestrion::Algorithm {
public:
    void compute() override {
        if (m_fail.value()) {
            setStatus(Error);
            KESTRION_LOG_ERROR(Category, identifier() << " refuses to compute");
            return;
        }
        setStatus(Success);
        KESTRION_LOG_INFO(Category, identifier() << " computed: label=" << m_label.value()
                                                 << " value=" << m_value.value());
    }

private:
    Kestrion::Parameter<std::string> m_label{"label", "", this};
    Kestrion::Parameter<int> m_value{"value", 0, this};
    Kestrion::Parameter<bool> m_fail{"fail", false, this};
};

class TestAlgorithmFactory : public Kestrion::AlgorithmFactory {
public:
    TestAlgorithmFactory()
        : AlgorithmFactory(TEST_PLUGIN_PREFIX, true) {
        Kestrion::Properties defaults;
        defaults.setParam("label", std::string("default"));
        registerAlgorithm<RecorderAlgorithm>("Recorder", "Test;" TEST_PLUGIN_PREFIX ";Recorder", {},
                                             defaults);
    }
};

class TestControllerFactory : public Kestrion::AlgorithmControllerFactory {
public:
    TestControllerFactory()
        : AlgorithmControllerFactory(TEST_PLUGIN_PREFIX, true) {}
    Kestrion::AlgorithmController* create(Kestrion::Algorithm* algorithm) override {
        return dynamic_cast<RecorderAlgorithm*>(algorithm) ? new Kestrion::AlgorithmController(algorithm)
                                                           : nullptr;
    }
};

class TestPlugin : public Kestrion::KestrionLibPlugin {
public:
    int init() override {
        KESTRION_LOG_INFO(Category, "init " << id());
#ifdef TEST_PLUGIN_LICENSE
        if (!Kestrion::isLicensed(TEST_PLUGIN_LICENSE))
            return 1;
#endif
#ifdef TEST_PLUGIN_REQUIRES
        if (!Kestrion::FactoryRegistry::instance().hasAlgorithm(TEST_PLUGIN_REQUIRES)) {
            KESTRION_LOG_ERROR(Category, id() << " needs " << TEST_PLUGIN_REQUIRES);
            return 2;
        }
#endif
#ifdef TEST_PLUGIN_INIT_RESULT
        return TEST_PLUGIN_INIT_RESULT;
#else
        registerFactories(std::make_unique<TestAlgorithmFactory>(), std::make_unique<TestControllerFactory>(),
                          std::make_unique<Kestrion::DataAnnotationFactory>(TEST_PLUGIN_PREFIX));
#ifdef TEST_PLUGIN_CONVERSION
        Kestrion::WorkspaceConversionRegistry::instance().addConversion(
            {"Renamed " TEST_PLUGIN_CONVERSION " to " TEST_PLUGIN_PREFIX ".Recorder", 10,
             [](Kestrion::Properties& workspace, const Kestrion::Filesystem::Path&) {
                 Kestrion::Properties* algorithms = workspace.subProperty("Algorithms");
                 bool changed = false;
                 for (Kestrion::Properties* block :
                      algorithms ? algorithms->subProperties() : std::vector<Kestrion::Properties*>{})
                     if (block->name() == TEST_PLUGIN_CONVERSION) {
                         block->setName(TEST_PLUGIN_PREFIX ".Recorder");
                         changed = true;
                     }
                 return changed;
             }});
#endif
        return 0;
#endif
    }
    std::string id() const override {
        return TEST_PLUGIN_ID;
    }
    std::string author() const override {
        return "Kestrion test team";
    }
    std::string description() const override {
        return "Test plugin " TEST_PLUGIN_ID;
    }
    std::vector<std::string> dependencies() const override {
        return {TEST_PLUGIN_DEPENDENCIES};
    }
};

} // namespace

extern "C" {
#ifndef TEST_PLUGIN_NO_DESCRIPTOR
const char* const kestrionPluginDescriptor = TEST_PLUGIN_DESCRIPTOR;
#endif
#ifndef TEST_PLUGIN_NO_CREATE
Kestrion::KestrionLibPlugin* kestrionCreatePlugin() {
    return new TestPlugin;
}
#endif
const char* kestrionPluginId() {
    return TEST_PLUGIN_ID;
}
}

static Kestrion::PluginAutoRegistrationGuard guard(&kestrionPluginId);
