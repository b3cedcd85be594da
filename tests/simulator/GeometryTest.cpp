// Geometry registration and removal.

#include "tests/simulator/SimulatorTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace Kestrion::SimulatorTest;

TEST(Geometries, RegistrationAndRemovalFollowTheInterfaceRules) {
    SceneGuard scene;
    Camera camera;
    const std::vector<std::array<float, 3>> six = {{0, 0, 0},    {50, 0, 0},  {0, 70, 0},
                                                   {40, 60, 10}, {90, 30, 0}, {-20, 40, 5}};
    EXPECT_EQ(camera.setGeometry(makeGeometry(2000, {six.begin(), six.begin() + 2})),
              ftkError::FTK_ERR_GEOM_PTS);
    EXPECT_NE(camera.errorText().find("FTK_ERR_GEOM_PTS"), std::string::npos);
    EXPECT_EQ(camera.setGeometry(makeGeometry(2001, {six.begin(), six.begin() + 3})), ftkError::FTK_OK);
    EXPECT_EQ(camera.setGeometry(makeGeometry(2002, six)), ftkError::FTK_OK);
    ftkGeometry seven = makeGeometry(2003, six);
    seven.pointsCount = 7;
    EXPECT_EQ(camera.setGeometry(seven), ftkError::FTK_ERR_GEOM_PTS);
    ftkGeometry notANumber = makeGeometry(2004, six);
    notANumber.positions[2].y = std::nanf("");
    EXPECT_EQ(camera.setGeometry(notANumber), ftkError::FTK_ERR_GEOM_PTS);

    EXPECT_EQ(camera.setGeometry(makeGeometry(2001, six)), ftkError::FTK_ERR_GEOM_REGISTERED);
    EXPECT_EQ(ftkClearGeometry(camera.lib, camera.serial, 2999), ftkError::FTK_WAR_GEOM_ID);
    EXPECT_EQ(ftkClearGeometry(camera.lib, camera.serial, 2001), ftkError::FTK_OK);
    EXPECT_EQ(ftkClearGeometry(camera.lib, camera.serial, 2001), ftkError::FTK_WAR_GEOM_ID);
    EXPECT_EQ(camera.setGeometry(makeGeometry(2001, six)), ftkError::FTK_OK)
        << "cleared ids can be used again";

    EXPECT_EQ(ftkSetGeometry(camera.lib, camera.serial, nullptr), ftkError::FTK_ERR_INV_PTR);
    EXPECT_EQ(camera.setGeometry(makeGeometry(2005, six)), ftkError::FTK_OK);
    EXPECT_EQ(ftkSetGeometry(camera.lib, camera.serial + 1, &seven), ftkError::FTK_ERR_INV_SN);
    EXPECT_EQ(ftkClearGeometry(camera.lib, camera.serial + 1, 2001), ftkError::FTK_ERR_INV_SN);

    // A removed geometry is no longer matched.
    ASSERT_EQ(camera.setGeometry(makeGeometry(1000, {{0, 0, 0}, {31, 82, 0}, {96, -10, 0}, {61, 46, 0}})),
              ftkError::FTK_OK);
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    EXPECT_NE(findMarker(*camera.frame, 1000), nullptr);
    ASSERT_EQ(ftkClearGeometry(camera.lib, camera.serial, 1000), ftkError::FTK_OK);
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    EXPECT_EQ(findMarker(*camera.frame, 1000), nullptr);
}
