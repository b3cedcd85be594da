#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Kestrion::Simulator {

/// The pixels of one camera image in a frame record, and what they hold: the dark background of
/// one simulated sensor with blobs drawn over it. Drawing the next frame of the same sensor only
/// restores the boxes where blobs were drawn, so an image costs its blobs rather than its size.
class SensorImage {
public:
    /// Pixels a blob was drawn into, inclusive bounds.
    struct Box {
        int x0 = 0;
        int y0 = 0;
        int x1 = -1;
        int y1 = -1;
    };

    /// No background known: the next drawing starts from a whole background.
    static constexpr std::uint64_t NoBackground = 0;

    std::uint8_t* data() { return m_pixels.empty() ? nullptr : m_pixels.data(); }
    std::size_t size() const { return m_pixels.size(); }
    /// Which background the pixels hold under their boxes; NoBackground when unknown.
    std::uint64_t background() const { return m_background; }
    const std::vector<Box>& boxes() const { return m_boxes; }

    /// Starts over from a whole background identified by `key`.
    void reset(const std::vector<std::uint8_t>& background, std::uint64_t key);
    /// Puts the background back under every box drawn since, and forgets the boxes.
    void restore(const std::vector<std::uint8_t>& background, int width);
    void addBox(const Box& box) { m_boxes.push_back(box); }
    /// Pixels that came from elsewhere (a recorded image): the background is unknown.
    void assign(const std::vector<std::uint8_t>& pixels);
    /// No pixels at all.
    void clear();

private:
    std::vector<std::uint8_t> m_pixels;
    std::uint64_t m_background = NoBackground;
    std::vector<Box> m_boxes;
};

} // namespace Kestrion::Simulator
