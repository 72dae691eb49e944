#include <cstdlib>
#include <cstring>
#include <vector>

#include <engine/filesystem/access/open.h>
#include <engine/filesystem/access/whole_file.h>

#include "engine/filesystem/access/whole_file_parts.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/platform/text.h"

// Wide text. In a file it is 16-bit units, low byte first, behind a byte-order mark; in memory it is what wchar_t is on
// this system: such a unit, or a whole character. There a pair of surrogates is one character, and a lone one stays as
// it is.

namespace fs {

namespace {

constexpr std::uint64_t failed = ~std::uint64_t{0};
constexpr std::uint64_t mark_bytes = 2;
constexpr std::uint64_t largest_text = std::uint64_t{1} << 40;  // so that no product below can wrap
constexpr bool units_are_characters = sizeof(wchar_t) == 2;

bool is_high(std::uint32_t unit) { return (unit & 0xFFFFFC00u) == 0xD800u; }
bool is_low(std::uint32_t unit) { return (unit & 0xFFFFFC00u) == 0xDC00u; }

std::uint32_t unit_at(const unsigned char* bytes, std::uint64_t index) {
    return bytes[2 * index] | static_cast<std::uint32_t>(bytes[2 * index + 1]) << 8;
}

/// A zeroed block for `length` characters and the terminator.
wchar_t* new_text(std::uint64_t length, const char* path) {
    auto* const text = static_cast<wchar_t*>(std::calloc(static_cast<std::size_t>(length) + 1, sizeof(wchar_t)));
    if (text == nullptr) set_error(EFSError::OUT_OF_MEMORY, path, "There is no memory for the whole text.");
    return text;
}

void decode_units(const unsigned char* bytes, std::uint64_t count, wchar_t* out) {
    for (std::uint64_t i = 0; i < count; ++i) {
        std::uint32_t character = unit_at(bytes, i);
        if (!units_are_characters && is_high(character) && i + 1 < count && is_low(unit_at(bytes, i + 1))) {
            character = 0x10000u + ((character & 0x3FFu) << 10) + (unit_at(bytes, ++i) & 0x3FFu);
        }
        *out++ = static_cast<wchar_t>(character);
    }
    *out = L'\0';
}

void append_unit(std::vector<unsigned char>& bytes, std::uint32_t unit) {
    bytes.push_back(static_cast<unsigned char>(unit));
    bytes.push_back(static_cast<unsigned char>(unit >> 8));
}

void append_character(std::vector<unsigned char>& bytes, wchar_t letter) {
    const auto character = static_cast<std::uint32_t>(letter);
    if (units_are_characters || character < 0x10000u || character > 0x10FFFFu) {
        append_unit(bytes, character);
        return;
    }
    append_unit(bytes, 0xD800u + ((character - 0x10000u) >> 10));
    append_unit(bytes, 0xDC00u + ((character - 0x10000u) & 0x3FFu));
}

wchar_t* load_text(SFsFile& file, std::uint64_t length, const char* path) {
    if (length < mark_bytes) return new_text(0, path);  // the only byte of a file is not looked at
    const std::unique_ptr<void, decltype(&std::free)> block(allocate(length, path), &std::free);
    if (!block) return nullptr;
    const auto* const bytes = static_cast<const unsigned char*>(block.get());
    read_filled(file, block.get(), length);
    const bool marked = unit_at(bytes, 0) == 0xFEFFu;
    const std::uint64_t units = length / 2 - 1;  // an odd last byte is no unit
    wchar_t* const text = new_text(marked ? units : length, path);
    if (text == nullptr) return nullptr;
    if (marked) {
        decode_units(bytes + mark_bytes, units, text);
    } else {
        platform::narrow_to_wide(static_cast<const char*>(block.get()), static_cast<std::size_t>(length), text);
    }
    return text;
}

}  // namespace

wchar_t* load_wide_string(const char* path) {
    const FilePtr file(open(path, EFSMode::READ));
    const std::uint64_t length = file ? known_length(*file, path) : failed;
    if (length == failed) return nullptr;
    if (length > largest_text) {
        set_error(EFSError::TOO_LARGE, path, "The file is too large for a text in memory.");
        return nullptr;
    }
    return load_text(*file, length, path);
}

bool save_wide_string(const ztl::string_base<wchar_t>& text, const char* path) {
    std::vector<unsigned char> bytes;
    try {
        bytes.reserve(text.size() * 2 + mark_bytes);
        append_unit(bytes, 0xFEFFu);
        for (const wchar_t letter : text) append_character(bytes, letter);
    } catch (...) {
        return refuse(EFSError::OUT_OF_MEMORY, path, "There is no memory for the encoded text.");
    }
    const FilePtr file(open(path, EFSMode::WRITE));
    return file && write_checked(*file, path, bytes.data(), bytes.size());
}

}  // namespace fs
