#include "model/hex.h"

namespace zpe {

namespace {
constexpr char kDigits[] = "0123456789ABCDEF";

std::string fixedHex(uint32_t value, int width) {
    std::string out(static_cast<size_t>(width), '0');
    for (int i = width - 1; i >= 0; --i) {
        out[static_cast<size_t>(i)] = kDigits[value & 0xF];
        value >>= 4;
    }
    return out;
}
}  // namespace

std::string hexPlain(int64_t value) {
    uint64_t v = value < 0 ? (static_cast<uint64_t>(value) & 0xFFFFFFFFull) : static_cast<uint64_t>(value);
    if (v == 0) return "0";
    std::string out;
    while (v != 0) {
        out.insert(out.begin(), kDigits[v & 0xF]);
        v >>= 4;
    }
    return out;
}

std::string hex2(int32_t value) { return fixedHex(static_cast<uint32_t>(value) & 0xFFu, 2); }

std::string hex4(int32_t value) { return fixedHex(static_cast<uint32_t>(value) & 0xFFFFu, 4); }

int64_t leadingHexValue(const std::string& text) {
    size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t')) ++i;
    int64_t value = 0;
    for (; i < text.size(); ++i) {
        const char c = text[i];
        int digit;
        if (c >= '0' && c <= '9') digit = c - '0';
        else if (c >= 'A' && c <= 'F') digit = c - 'A' + 10;
        else if (c >= 'a' && c <= 'f') digit = c - 'a' + 10;
        else break;
        if (value > (INT64_MAX >> 4)) return INT64_MAX >> 4;  // far outside any code or byte
        value = value * 16 + digit;
    }
    return value;
}

std::string thousands(int64_t n) {
    const bool negative = n < 0;
    const uint64_t magnitude = negative ? 0 - static_cast<uint64_t>(n) : static_cast<uint64_t>(n);  // INT64_MIN too
    std::string digits = std::to_string(magnitude), out;
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0) out += ',';
        out += digits[i];
    }
    return negative ? "-" + out : out;
}

}  // namespace zpe
