#pragma once

#include <cstdint>

namespace Kestrion::Simulator {

/// Small, fast and portable pseudo-random generator (xoshiro256** seeded through splitmix64) with
/// Gaussian samples by the Box-Muller transform. Implemented here rather than with <random> so
/// that a scene's seed gives the same frames on every standard library.
class Random {
public:
    explicit Random(std::uint64_t seed = 0) { reseed(seed); }

    /// Restarts the sequence; cheap enough to do once per frame.
    void reseed(std::uint64_t seed);
    std::uint64_t next();
    /// Uniform in [0, 1).
    double uniform();
    /// Normal with mean 0 and standard deviation sigma.
    double gaussian(double sigma);

    /// Mixes several values into one seed (for per-device, per-frame streams).
    static std::uint64_t mix(std::uint64_t a, std::uint64_t b);

private:
    std::uint64_t m_state[4] = {};
    bool m_hasSpare = false;
    double m_spare = 0.0;
};

} // namespace Kestrion::Simulator
