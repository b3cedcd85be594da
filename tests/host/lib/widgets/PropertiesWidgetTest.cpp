#include "host/lib/widgets/PropertiesWidget.h"
#include "host/core/Configurable.h"
#include "host/core/Parameter.h"
#include "host/core/Properties.h"
#include "tests/support/gui/GuiTestApplication.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTest>

#include <gtest/gtest.h>

using namespace Kestrion;

namespace {

class PropertiesWidgetTest : public ::testing::Test {
protected:
    void SetUp() override { TestSupport::guiApplication(); }

    /// The names announced by the spy's parameterChanged emissions.
    static std::vector<std::string> names(const QSignalSpy& spy) {
        std::vector<std::string> result;
        for (const QList<QVariant>& arguments : spy)
            result.push_back(arguments.at(0).value<std::string>());
        return result;
    }
};

class StreamSettings : public Configurable {
public:
    Parameter<int> integrationTime{"imageIntegrationTime", 100, this};
    Parameter<int> mode{"fiducialQueryMode", 0, this};
    Parameter<double> distance{"maxFiducialMarkerDistance", 2.5, this};
    std::vector<std::string> lastConfigured; // parameter names of the last configure()

    StreamSettings() { mode.setAttribute("hidden", "true"); }
    void configure(const Properties* properties) override {
        lastConfigured = properties ? properties->paramNames() : std::vector<std::string>{};
        Configurable::configure(properties);
    }
};

TEST_F(PropertiesWidgetTest, OneEditorPerVisibleParameterByTypeWhoseEditsChangeTheTree) {
    Properties tree("Settings");
    tree.setParam("connect", true);
    tree.setParam("imageIntegrationTime", 120);
    tree.setParam("maxFiducialMarkerDistance", 2.75);
    tree.setParam("name", std::string("left"));
    tree.setParam("fiducialQueryMode", 2);
    tree.setParamAttribute("fiducialQueryMode", "values",
                           "None;Belonging to marker;All in marker vicinity;All");
    Properties* targets = tree.addSubProperties("TrackingTargets");
    targets->setAttribute("hidden", "true");
    targets->addSubProperties("marker")->setParam("Path", std::string("/tmp/a.ini"));

    PropertiesWidget widget(&tree);
    EXPECT_EQ(widget.rowCount(), 5);
    EXPECT_EQ(widget.editor("TrackingTargets/marker/Path"), nullptr);
    EXPECT_TRUE(widget.findChildren<QGroupBox*>().isEmpty());
    auto* check = qobject_cast<QCheckBox*>(widget.editor("connect"));
    auto* spin = qobject_cast<QSpinBox*>(widget.editor("imageIntegrationTime"));
    auto* real = qobject_cast<QDoubleSpinBox*>(widget.editor("maxFiducialMarkerDistance"));
    auto* line = qobject_cast<QLineEdit*>(widget.editor("name"));
    auto* combo = qobject_cast<QComboBox*>(widget.editor("fiducialQueryMode"));
    ASSERT_TRUE(check && spin && real && line && combo);
    EXPECT_TRUE(check->isChecked());
    EXPECT_EQ(line->text(), "left");
    EXPECT_EQ(combo->currentText(), "All in marker vicinity");

    QSignalSpy spy(&widget, &PropertiesWidget::parameterChanged);
    check->click();
    spin->setValue(250);
    real->setValue(3.25);
    line->setFocus();
    line->selectAll();
    QTest::keyClicks(line, "right");
    QTest::keyClick(line, Qt::Key_Return);
    combo->setCurrentIndex(0);

    EXPECT_EQ(names(spy),
              (std::vector<std::string>{"connect", "imageIntegrationTime", "maxFiducialMarkerDistance",
                                        "name", "fiducialQueryMode"}));
    EXPECT_FALSE(tree.param("connect", true));
    EXPECT_EQ(tree.paramType("imageIntegrationTime"), "int");
    EXPECT_EQ(tree.param("imageIntegrationTime", 0), 250);
    EXPECT_DOUBLE_EQ(tree.param("maxFiducialMarkerDistance", 0.0), 3.25);
    EXPECT_EQ(tree.param("name", std::string()), "right");
    EXPECT_EQ(tree.param("fiducialQueryMode", -1), 0); // an integer enumeration holds the index
    EXPECT_EQ(widget.lastChangedParameter(), "fiducialQueryMode");

    // Finishing an edit that changed nothing announces nothing; neither does showing new values.
    spy.clear();
    line->setFocus();
    QTest::keyClick(line, Qt::Key_Return);
    tree.setParam("imageIntegrationTime", 90);
    tree.setParam("fiducialQueryMode", 1);
    widget.reload();
    EXPECT_EQ(spy.count(), 0);
    EXPECT_EQ(qobject_cast<QSpinBox*>(widget.editor("imageIntegrationTime"))->value(), 90);
    EXPECT_EQ(qobject_cast<QComboBox*>(widget.editor("fiducialQueryMode"))->currentIndex(), 1);
}

TEST_F(PropertiesWidgetTest, LabelsFollowCamelCaseSplitting) {
    const std::vector<std::pair<std::string, std::string>> rows{
        {"maxFiducialMarkerDistance", "Max Fiducial Marker Distance"},
        {"SDKPath", "SDK Path"},
        {"point3D", "Point 3D"},
        {"max_distance", "Max distance"},
        {"_open_", "Open"},
    };
    for (const auto& [name, label] : rows)
        EXPECT_EQ(PropertiesWidget::splitCamelCase(name), label) << name;

    Properties tree;
    tree.setParam("maxFiducialMarkerDistance", 2.0);
    tree.addSubProperties("cameraSettings")->setParam("frameRate", 30);
    PropertiesWidget widget(&tree);
    EXPECT_EQ(widget.label("maxFiducialMarkerDistance")->text(), "maxFiducialMarkerDistance");
    widget.setCamelCaseSplitting(true);
    EXPECT_EQ(widget.label("maxFiducialMarkerDistance")->text(), "Max Fiducial Marker Distance");
    EXPECT_EQ(widget.label("cameraSettings/frameRate")->text(), "Frame Rate");
    ASSERT_NE(widget.findChild<QGroupBox*>(), nullptr);
    EXPECT_EQ(widget.findChild<QGroupBox*>()->title(), "Camera Settings");
}

TEST_F(PropertiesWidgetTest, AppliesOnlyTheEditedParameterToAConfigurable) {
    StreamSettings settings;
    PropertiesWidget widget(&settings);
    EXPECT_EQ(widget.rowCount(), 2);                 // fiducialQueryMode is hidden
    EXPECT_FALSE(widget.applyLastChange(&settings)); // nothing edited yet

    QSignalSpy spy(&widget, &PropertiesWidget::parameterChanged);
    qobject_cast<QDoubleSpinBox*>(widget.editor("maxFiducialMarkerDistance"))->setValue(4.5);
    ASSERT_EQ(spy.count(), 1);
    EXPECT_DOUBLE_EQ(settings.distance.value(), 2.5); // the widget edits its copy only

    // Changed elsewhere meanwhile: applying the edit must not bring the old value back.
    settings.integrationTime = 300;
    ASSERT_TRUE(widget.applyLastChange(&settings));
    EXPECT_EQ(settings.lastConfigured, std::vector<std::string>{"maxFiducialMarkerDistance"});
    EXPECT_DOUBLE_EQ(settings.distance.value(), 4.5);
    EXPECT_EQ(settings.integrationTime.value(), 300);
}

TEST_F(PropertiesWidgetTest, ReloadingANewShapeFromAnEditHandlerRebuildsSafely) {
    // A receiver that reloads from the object while the edit is announced, as panels do, and
    // the object that gains a parameter on that edit: the announcing editor must survive.
    class Growing : public Configurable {
    public:
        Parameter<bool> enabled{"enabled", false, this};
        std::unique_ptr<Parameter<int>> extra;
        void configure(const Properties* properties) override {
            Configurable::configure(properties);
            if (enabled.value() && !extra)
                extra = std::make_unique<Parameter<int>>("extra", 7, this);
        }
    } object;
    PropertiesWidget widget(&object);
    QObject::connect(&widget, &PropertiesWidget::parameterChanged, &widget, [&]() {
        widget.applyLastChange(&object);
        widget.reload();
    });
    qobject_cast<QCheckBox*>(widget.editor("enabled"))->click();
    EXPECT_EQ(widget.editor("extra"), nullptr); // deferred
    QCoreApplication::processEvents();
    auto* extra = qobject_cast<QSpinBox*>(widget.editor("extra"));
    ASSERT_NE(extra, nullptr);
    EXPECT_EQ(extra->value(), 7);
    EXPECT_TRUE(qobject_cast<QCheckBox*>(widget.editor("enabled"))->isChecked());
}

} // namespace
