#include "host/core/SharedImage.h"
#include "host/core/SharedImageSet.h"
#include "host/core/TypedImage.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <vector>

using namespace Kestrion;

TEST(Image, DescriptorSizes) {
    ImageDescriptor grey(PixelType::UInt8, 1, 640, 480);
    EXPECT_EQ(grey.byteSize(), 640u * 480u);
    ImageDescriptor rgb16(PixelType::UInt16, 3, 4, 2, 5);
    EXPECT_EQ(rgb16.pixelCount(), 40u);
    EXPECT_EQ(rgb16.byteSize(), 40u * 3u * 2u);
    EXPECT_TRUE(ImageDescriptor(PixelType::Double, 1, 0, 0).isValid());
    EXPECT_FALSE(ImageDescriptor(PixelType::UInt8, 0, 4, 4).isValid());
    EXPECT_FALSE(ImageDescriptor(PixelType::UInt8, 1, -1, 4).isValid());
    EXPECT_EQ(ImageDescriptor(PixelType::UInt8, 1, -1, 4).byteSize(), 0u);
}

TEST(Image, WrapsForeignMemoryAndClonesDeeply) {
    std::vector<std::uint8_t> camera(3 * 2, 0);
    for (std::size_t i = 0; i < camera.size(); ++i)
        camera[i] = static_cast<std::uint8_t>(10 + i);
    ImageU8 wrapped(ImageDescriptor(PixelType::UInt8, 1, 3, 2), camera.data());
    EXPECT_FALSE(wrapped.ownsMemory());
    EXPECT_EQ(wrapped.data(), camera.data());
    EXPECT_EQ(wrapped.at(2, 1), 15); // row-major: (x=2, y=1) is element 5
    wrapped.at(0, 1) = 99;
    EXPECT_EQ(camera[3], 99); // writes reach the wrapped memory

    std::unique_ptr<Image> copy = wrapped.clone();
    ASSERT_TRUE(copy);
    EXPECT_TRUE(copy->ownsMemory());
    EXPECT_EQ(copy->descriptor(), wrapped.descriptor());
    auto* typedCopy = dynamic_cast<ImageU8*>(copy.get());
    ASSERT_NE(typedCopy, nullptr);
    camera[5] = 0; // the clone keeps the pixels of the moment it was made
    EXPECT_EQ(typedCopy->at(2, 1), 15);
    EXPECT_EQ(typedCopy->at(0, 1), 99);

    // Channels of one pixel are adjacent; slices follow each other.
    TypedImage<float> multi(ImageDescriptor(PixelType::Float, 2, 2, 2, 2));
    EXPECT_TRUE(multi.ownsMemory());
    EXPECT_EQ(multi.at(1, 1, 1, 1), 0.0f); // zero-filled
    multi.at(1, 0, 1, 1) = 4.5f;
    EXPECT_EQ(multi.data()[((1 * 2 + 0) * 2 + 1) * 2 + 1], 4.5f);
    EXPECT_THROW(multi.at(2, 0), std::out_of_range);
    EXPECT_THROW(multi.at(0, 0, 2), std::out_of_range);

    EXPECT_THROW(ImageU8(ImageDescriptor(PixelType::UInt16, 1, 2, 2)), std::invalid_argument);
    EXPECT_THROW(ImageU8(ImageDescriptor(PixelType::UInt8, 1, 2, 2), nullptr), std::invalid_argument);
    EXPECT_THROW(Image(ImageDescriptor(PixelType::UInt8, 0, 2, 2)), std::invalid_argument);
}

TEST(SharedImage, SharesTheImageAndCountsChanges) {
    auto image =
        std::make_shared<SharedImage>(std::make_unique<ImageU8>(ImageDescriptor(PixelType::UInt8, 1, 2, 2)));
    EXPECT_EQ(image->modificationCount(), 0u);
    auto typed = image->typed<std::uint8_t>();
    ASSERT_TRUE(typed);
    EXPECT_FALSE(image->typed<float>());
    typed->at(1, 1) = 7;
    image->setDirty();
    image->setDirty();
    EXPECT_EQ(image->modificationCount(), 2u);
    EXPECT_THROW(SharedImage(std::shared_ptr<Image>()), std::invalid_argument);

    SharedImageSet set("Camera");
    EXPECT_FALSE(set.add(nullptr));
    EXPECT_FALSE(set.replace(0, image)); // nothing to replace yet
    EXPECT_EQ(set.modificationCount(), 0u);
    EXPECT_TRUE(set.setFirst(image));
    auto other =
        std::make_shared<SharedImage>(std::make_unique<Image>(ImageDescriptor(PixelType::UInt8, 1, 1, 1)));
    EXPECT_TRUE(set.add(other));
    EXPECT_EQ(set.size(), 2u);
    EXPECT_EQ(set.get(0), image);
    EXPECT_EQ(set.get(2), nullptr);
    EXPECT_TRUE(set.replace(1, image));
    EXPECT_EQ(set.images(), (std::vector<std::shared_ptr<SharedImage>>{image, image}));
    EXPECT_TRUE(set.setFirst(other));
    EXPECT_EQ(set.get(0), other);
    EXPECT_EQ(set.modificationCount(), 4u);
    set.setModified();
    set.clear();
    EXPECT_TRUE(set.empty());
    EXPECT_EQ(set.modificationCount(), 6u);
    set.clear(); // clearing an empty set changes nothing
    EXPECT_EQ(set.modificationCount(), 6u);
}
