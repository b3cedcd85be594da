#include "simulator/src/Random.h"

#include <cmath>

namespace Kestrion::Simulator {

namespace {

std::uint64_t splitmix(std::uint64_t& x) {
    std::uint64_t z = (x += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

std::uint64_t rotl(std::uint64_t x, int k) {
    return (x << k) | (x >> (64 - k));
}

} // namespace

void Random::reseed(std::uint64_t seed) {
    for (auto& word : m_state) {
        word = splitmix(seed);
    }
    m_hasSpare = false;
}

std::uint64_t Random::next() {
    const std::uint64_t result = rotl(m_state[1] * 5, 7) * 9;
    const std::uint64_t t = m_state[1] << 17;
    m_state[2] ^= m_state[0];
    m_state[3] ^= m_state[1];
    m_state[1] ^= m_state[2];
    m_state[0] ^= m_state[3];
    m_state[2] ^= t;
    m_state[3] = rotl(m_state[3], 45);
    return result;
}

double Random::uniform() {
    return static_cast<double>(next() >> 11) * (1.0 / 9007199254740992.0);
}

double Random::gaussian(double sigma) {
    if (m_hasSpare) {
        m_hasSpare = false;
        return m_spare * sigma;
    }
    double u1 = uniform();
    while (u1 <= 0.0) {
        u1 = uniform();
    }
    const double u2 = uniform();
    const double radius = std::sqrt(-2.0 * std::log(u1));
    const double angle = 2.0 * M_PI * u2;
    m_spare = radius * std::sin(angle);
    m_hasSpare = true;
    return radius * std::cos(angle) * sigma;
}

std::uint64_t Random::mix(std::uint64_t a, std::uint64_t b) {
    std::uint64_t x = a ^ (b + 0x9E3779B97F4A7C15ull + (a << 6) + (a >> 2));
    return splitmix(x);
}

} // namespace Kestrion::Simulator
