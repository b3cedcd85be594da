#include "host/core/SharedImage.h"
#include "host/core/SharedImageSet.h"
#include "host/core/TypedImage.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <vector>

using namespace Kestrion;

TEST(Image, WrapsForeignMemoryClonesDeeplyAndChecksItsShape) {
    EXPECT_EQ(ImageDescriptor(PixelType::UInt16, 3, 4, 2, 5).byteSize(), 40u * 3u * 2u);
    EXPECT_EQ(ImageDescriptor(PixelType::UInt8, 1, -1, 4).byteSize(), 0u);

    std::vector<std::uint8_t> camera = {10, 11, 12, 13, 14, 15};
    ImageU8 wrapped(ImageDescriptor(PixelType::UInt8, 1, 3, 2), camera.data());
    EXPECT_FALSE(wrapped.ownsMemory());
    EXPECT_EQ(wrapped.at(2, 1), 15); // row-major: (x=2, y=1) is element 5
    wrapped.at(0, 1) = 99;
    EXPECT_EQ(camera[3], 99); // writes reach the wrapped memory

    std::unique_ptr<Image> copy = wrapped.clone();
    auto* typedCopy = dynamic_cast<ImageU8*>(copy.get());
    ASSERT_NE(typedCopy, nullptr);
    EXPECT_TRUE(copy->ownsMemory());
    camera[5] = 0; // the clone keeps the pixels of the moment it was made
    EXPECT_EQ(typedCopy->at(2, 1), 15);
    EXPECT_EQ(typedCopy->at(0, 1), 99);

    EXPECT_THROW(wrapped.at(3, 0), std::out_of_range);

    EXPECT_THROW(ImageU8(ImageDescriptor(PixelType::UInt16, 1, 2, 2)), std::invalid_argument);
    EXPECT_THROW(ImageU8(ImageDescriptor(PixelType::UInt8, 1, 2, 2), nullptr), std::invalid_argument);
    EXPECT_THROW(Image(ImageDescriptor(PixelType::UInt8, 0, 2, 2)), std::invalid_argument);
}

TEST(SharedImageSet, RefusesWhatItCannotHoldAndCountsOnlyRealChanges) {
    auto image =
        std::make_shared<SharedImage>(std::make_unique<ImageU8>(ImageDescriptor(PixelType::UInt8, 1, 2, 2)));
    EXPECT_FALSE(image->typed<float>());
    EXPECT_THROW(SharedImage(std::shared_ptr<Image>()), std::invalid_argument);

    SharedImageSet set("Camera");
    EXPECT_FALSE(set.add(nullptr));
    EXPECT_FALSE(set.replace(0, image)); // nothing to replace yet
    EXPECT_EQ(set.modificationCount(), 0u);
    EXPECT_TRUE(set.setFirst(image));
    EXPECT_TRUE(set.replace(0, image));
    EXPECT_EQ(set.get(1), nullptr);
    set.clear();
    set.clear(); // clearing an empty set changes nothing
    EXPECT_EQ(set.modificationCount(), 3u);
}
