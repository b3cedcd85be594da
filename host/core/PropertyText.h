#pragma once

#include <Eigen/Core>

#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

namespace Kestrion {

/// Text form of a property value. Every parameter of a Properties tree is kept as text with a
/// type tag; PropertyText<T> converts one C++ type to and from that text.
///
/// | C++ type                                   | tag        | text                          |
/// |--------------------------------------------|------------|-------------------------------|
/// | bool                                       | "bool"     | "true" / "false"              |
/// | signed integers                            | "int"      | decimal                       |
/// | unsigned integers                          | "unsigned" | decimal                       |
/// | float, double                              | "float", "double" | shortest exact decimal |
/// | std::string                                | "string"   | as is                         |
/// | enumerations                               | as their underlying integer               |
/// | fixed-size Eigen vectors and matrices      | "vector", "matrix" | coefficients, row by row, separated by
/// spaces |
///
/// Parsing ignores surrounding white space for everything but strings, accepts "1"/"0" and any
/// letter case for booleans, and refuses trailing garbage, out-of-range values and, for
/// unsigned types, negative numbers. Text is locale-independent.
template <class T, class Enable = void>
struct PropertyText; // no conversion for this type

namespace PropertyTextDetail {
bool parseSigned(const std::string& text, long long min, long long max, long long& out);
bool parseUnsigned(const std::string& text, unsigned long long max, unsigned long long& out);
bool parseDouble(const std::string& text, double& out);
bool parseFloat(const std::string& text, float& out);
bool parseBool(const std::string& text, bool& out);
std::string formatDouble(double value);
std::string formatFloat(float value);
/// Splits on white space.
std::vector<std::string> words(const std::string& text);
/// True when the text is a valid value for a known tag; unknown tags accept anything.
bool isValid(const std::string& type, const std::string& text);
} // namespace PropertyTextDetail

template <>
struct PropertyText<bool> {
    static const char* type() { return "bool"; }
    static std::string toText(bool value) { return value ? "true" : "false"; }
    static bool fromText(const std::string& text, bool& out) {
        return PropertyTextDetail::parseBool(text, out);
    }
};

template <class T>
struct PropertyText<T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>>> {
    static const char* type() { return std::is_signed_v<T> ? "int" : "unsigned"; }
    static std::string toText(T value) { return std::to_string(value); }
    static bool fromText(const std::string& text, T& out) {
        if constexpr (std::is_signed_v<T>) {
            long long parsed = 0;
            if (!PropertyTextDetail::parseSigned(text, std::numeric_limits<T>::min(),
                                                 std::numeric_limits<T>::max(), parsed))
                return false;
            out = static_cast<T>(parsed);
        } else {
            unsigned long long parsed = 0;
            if (!PropertyTextDetail::parseUnsigned(text, std::numeric_limits<T>::max(), parsed))
                return false;
            out = static_cast<T>(parsed);
        }
        return true;
    }
};

template <>
struct PropertyText<double> {
    static const char* type() { return "double"; }
    static std::string toText(double value) { return PropertyTextDetail::formatDouble(value); }
    static bool fromText(const std::string& text, double& out) {
        return PropertyTextDetail::parseDouble(text, out);
    }
};

template <>
struct PropertyText<float> {
    static const char* type() { return "float"; }
    static std::string toText(float value) { return PropertyTextDetail::formatFloat(value); }
    static bool fromText(const std::string& text, float& out) {
        return PropertyTextDetail::parseFloat(text, out);
    }
};

template <>
struct PropertyText<std::string> {
    static const char* type() { return "string"; }
    static std::string toText(const std::string& value) { return value; }
    static bool fromText(const std::string& text, std::string& out) {
        out = text;
        return true;
    }
};

template <class T>
struct PropertyText<T, std::enable_if_t<std::is_enum_v<T>>> {
    using Underlying = std::underlying_type_t<T>;
    static const char* type() { return PropertyText<Underlying>::type(); }
    static std::string toText(T value) {
        return PropertyText<Underlying>::toText(static_cast<Underlying>(value));
    }
    static bool fromText(const std::string& text, T& out) {
        Underlying value{};
        if (!PropertyText<Underlying>::fromText(text, value))
            return false;
        out = static_cast<T>(value);
        return true;
    }
};

template <class Scalar, int Rows, int Cols, int Options, int MaxRows, int MaxCols>
struct PropertyText<Eigen::Matrix<Scalar, Rows, Cols, Options, MaxRows, MaxCols>,
                    std::enable_if_t<(Rows > 0 && Cols > 0)>> {
    using Matrix = Eigen::Matrix<Scalar, Rows, Cols, Options, MaxRows, MaxCols>;
    static const char* type() { return Cols == 1 ? "vector" : "matrix"; }
    static std::string toText(const Matrix& value) {
        std::string text;
        for (int r = 0; r < Rows; ++r)
            for (int c = 0; c < Cols; ++c) {
                if (!text.empty())
                    text += ' ';
                text += PropertyText<Scalar>::toText(value(r, c));
            }
        return text;
    }
    static bool fromText(const std::string& text, Matrix& out) {
        const std::vector<std::string> parts = PropertyTextDetail::words(text);
        if (parts.size() != static_cast<std::size_t>(Rows * Cols))
            return false;
        Matrix parsed;
        for (int r = 0; r < Rows; ++r)
            for (int c = 0; c < Cols; ++c)
                if (!PropertyText<Scalar>::fromText(parts[static_cast<std::size_t>(r * Cols + c)],
                                                    parsed(r, c)))
                    return false;
        out = parsed;
        return true;
    }
};

} // namespace Kestrion
