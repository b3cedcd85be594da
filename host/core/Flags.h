#pragma once

#include <type_traits>

namespace Kestrion {

/// A set of bit flags over an enumeration whose enumerators are single bits (or combinations).
/// `Flags<E>` combines with `|` and `&`, tests with testFlag() and converts to and from the
/// underlying integer. For `E | E` to give a Flags, declare KESTRION_FLAG_OPERATORS(E) after the
/// enumeration.
template <class E>
class Flags {
    static_assert(std::is_enum_v<E>, "Flags are made over an enumeration");

public:
    using Enum = E;
    using Int = std::make_unsigned_t<std::underlying_type_t<E>>;

    constexpr Flags() = default;
    constexpr Flags(E flag)
        : m_value(static_cast<Int>(flag)) {}
    static constexpr Flags fromInt(Int value) {
        Flags f;
        f.m_value = value;
        return f;
    }

    constexpr Int toInt() const { return m_value; }
    constexpr bool empty() const { return m_value == 0; }
    constexpr explicit operator bool() const { return m_value != 0; }

    /// True when every bit of `flag` is set. A flag whose value is 0 is "set" only in an empty set.
    constexpr bool testFlag(E flag) const {
        const Int bits = static_cast<Int>(flag);
        return bits == 0 ? m_value == 0 : (m_value & bits) == bits;
    }
    /// True when at least one bit of `other` is set.
    constexpr bool testAny(Flags other) const { return (m_value & other.m_value) != 0; }

    constexpr Flags& setFlag(E flag, bool on = true) {
        if (on)
            m_value |= static_cast<Int>(flag);
        else
            m_value &= static_cast<Int>(~static_cast<Int>(flag));
        return *this;
    }

    constexpr Flags& operator|=(Flags other) {
        m_value |= other.m_value;
        return *this;
    }
    constexpr Flags& operator&=(Flags other) {
        m_value &= other.m_value;
        return *this;
    }
    friend constexpr Flags operator|(Flags a, Flags b) { return fromInt(a.m_value | b.m_value); }
    friend constexpr Flags operator|(Flags a, E b) { return a | Flags(b); }
    friend constexpr Flags operator&(Flags a, Flags b) { return fromInt(a.m_value & b.m_value); }
    friend constexpr Flags operator&(Flags a, E b) { return a & Flags(b); }
    friend constexpr bool operator==(Flags a, Flags b) { return a.m_value == b.m_value; }
    friend constexpr bool operator!=(Flags a, Flags b) { return a.m_value != b.m_value; }

private:
    Int m_value = 0;
};

} // namespace Kestrion

/// Lets two enumerators of E combine into a Flags<E>: `E::A | E::B`.
#define KESTRION_FLAG_OPERATORS(E)                                                                           \
    constexpr ::Kestrion::Flags<E> operator|(E a, E b) {                                                     \
        return ::Kestrion::Flags<E>(a) | b;                                                                  \
    }
