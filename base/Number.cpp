#include "Number.h"

#include <charconv>
#include <limits>

namespace platform {

namespace {

bool IsSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// The text without leading white space and without a plus sign that a number follows.
std::string_view NumberStart(std::string_view text) {
    while (!text.empty() && IsSpace(text.front())) text.remove_prefix(1);
    if (text.size() > 1 && text[0] == '+' && text[1] != '-' && text[1] != '+') text.remove_prefix(1);
    return text;
}

// Reads one number off the front of `text`; false when none stands there.
template <class T>
bool TakeReal(std::string_view& text, T& value) {
    const std::string_view digits = NumberStart(text);
    T parsed{};
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), parsed);
    if (result.ec == std::errc::invalid_argument) return false;
    if (result.ec == std::errc::result_out_of_range) {
        // from_chars leaves the value open: an exponent below zero means too small, otherwise too large.
        const std::string_view number(digits.data(), static_cast<std::size_t>(result.ptr - digits.data()));
        const bool tiny =
            number.find("e-") != number.npos || number.find("E-") != number.npos || number.find("0.0") != number.npos;
        parsed = tiny ? T{0} : std::numeric_limits<T>::infinity();
        if (number.front() == '-') parsed = -parsed;
    }
    value = parsed;
    text.remove_prefix(static_cast<std::size_t>(result.ptr - text.data()));
    return true;
}

template <class T>
std::size_t Scan(std::string_view text, T* values, std::size_t count, char separator) {
    for (std::size_t i = 0; i < count; ++i) {
        if (i > 0) {
            if (text.empty() || text.front() != separator) return i;
            text.remove_prefix(1);
        }
        if (!TakeReal(text, values[i])) return i;
    }
    return count;
}

template <class T>
std::string Shortest(T value) {
    char text[64];
    const auto result = std::to_chars(text, text + sizeof text, value);
    return std::string(text, result.ptr);
}

}  // namespace

std::int32_t ParseInteger(std::string_view text) {
    const std::string_view digits = NumberStart(text);
    std::int32_t value = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (result.ec == std::errc::result_out_of_range) {
        return digits.front() == '-' ? std::numeric_limits<std::int32_t>::min()
                                     : std::numeric_limits<std::int32_t>::max();
    }
    return value;
}

double ParseReal(std::string_view text) {
    double value = 0.0;
    return TakeReal(text, value) ? value : 0.0;
}

std::size_t ScanReals(std::string_view text, double* values, std::size_t count, char separator) {
    return Scan(text, values, count, separator);
}

std::size_t ScanReals(std::string_view text, float* values, std::size_t count, char separator) {
    return Scan(text, values, count, separator);
}

std::string FormatReal(double value) {
    return Shortest(value);
}

std::string FormatReal(float value) {
    return Shortest(value);
}

std::string FormatFixed(double value) {
    char text[std::numeric_limits<double>::max_exponent10 + 16];  // sign, digits, point, decimals
    const auto result = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 6);
    return std::string(text, result.ptr);
}

}  // namespace platform
