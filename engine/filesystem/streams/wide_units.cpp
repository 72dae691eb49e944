#include "engine/filesystem/streams/wide_units.h"

#include "engine/kernel/text.h"

namespace fs {

namespace {

constexpr std::uint32_t high_surrogates = 0xD800;
constexpr std::uint32_t low_surrogates = 0xDC00;
constexpr std::uint32_t replacement = 0xFFFD;

}  // namespace

std::uint64_t count_units(const wchar_t* text, std::size_t length) {
    if constexpr (sizeof(wchar_t) == 2) return length;
    std::uint64_t units = 0;
    for (std::size_t i = 0; i < length; ++i) units += units_of(text[i]);
    return units;
}

std::uint16_t UnitReader::next() {
    if (low_surrogate_ != 0) {
        const std::uint16_t unit = low_surrogate_;
        low_surrogate_ = 0;
        return unit;
    }
    const std::uint32_t code = code_of(*text_);
    const std::uint32_t units = units_of(*text_++);
    if (units == 1) return static_cast<std::uint16_t>(code <= 0xFFFF ? code : replacement);
    low_surrogate_ = static_cast<std::uint16_t>(low_surrogates | (code & 0x3FF));
    return static_cast<std::uint16_t>(high_surrogates | ((code - 0x10000) >> 10));
}

void CharacterWriter::add(std::uint16_t unit) {
    if (sizeof(wchar_t) > 2 && kernel::is_high_surrogate(previous_) && kernel::is_low_surrogate(unit)) {
        out_[count_ - 1] = static_cast<wchar_t>(kernel::join_surrogates(previous_, unit));
        previous_ = 0;
        return;
    }
    out_[count_++] = static_cast<wchar_t>(unit);
    previous_ = unit;
}

}  // namespace fs
