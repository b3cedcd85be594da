#include "atracsys/stream/AtracsysImagePool.h"

#include <gtest/gtest.h>

#include <thread>
#include <tuple>

using Kestrion::SharedImage;
using Kestrion::SpryTrack::AtracsysImagePool;

namespace {

ftkImageHeader header(std::uint16_t width, std::uint16_t height, std::int32_t stride) {
    ftkImageHeader h{};
    h.width = width;
    h.height = height;
    h.imageStrideInBytes = stride;
    h.format = ftkPixelFormat::GRAY8;
    return h;
}

} // namespace

TEST(ImagePool, CopiesDropRowPaddingAndOutliveTheCameraBuffer) {
    auto pool = AtracsysImagePool::create();
    std::vector<std::uint8_t> camera = {1, 2, 3, 99, 4, 5, 6, 99}; // 3 x 2, rows 4 bytes apart
    std::shared_ptr<SharedImage> image = pool->copy(header(3, 2, 4), camera.data());
    auto typed = image->typed<std::uint8_t>();
    ASSERT_TRUE(typed);
    EXPECT_EQ(std::make_tuple(typed->width(), typed->height(), typed->descriptor().spacing),
              std::make_tuple(3, 2, Eigen::Vector3d(Eigen::Vector3d::Ones())));
    camera.assign(camera.size(), 0);
    EXPECT_EQ(std::vector<std::uint8_t>(typed->data(), typed->data() + 6),
              (std::vector<std::uint8_t>{1, 2, 3, 4, 5, 6}));
}

TEST(ImagePool, ImagesOutliveTheirPoolAndMayBeReleasedOnAnotherThread) {
    auto pool = AtracsysImagePool::create(2);
    std::vector<std::uint8_t> camera(16 * 8, 7);
    auto image = pool->copy(header(16, 8, 16), camera.data());
    auto other = pool->copy(header(8, 8, 8), camera.data());
    std::weak_ptr<AtracsysImagePool> weak = pool;
    pool.reset();
    EXPECT_FALSE(weak.expired()) << "kept alive by its images";
    std::thread([image = std::move(image)]() mutable { image.reset(); }).join();
    other.reset();
    EXPECT_TRUE(weak.expired());
}
