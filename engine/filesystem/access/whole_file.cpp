#include <engine/filesystem/access/whole_file.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "engine/filesystem/access/parts.h"
#include "engine/kernel/bytes.h"
#include "engine/kernel/text.h"
#include "engine/platform/clock.h"
#include "engine/platform/text.h"

// Files read and written whole.
//
// Wide text in a file is 16-bit units, low byte first, behind a byte-order mark; in memory it is what wchar_t is on this
// system: such a unit, or a whole character. There a pair of surrogates is one character, and a lone one stays as it is.

namespace fs {

namespace {

/// Reads `size` bytes; what does not come is filled with zeros.
void read_filled(SFsFile& file, void* buffer, std::uint64_t size) {
    const std::uint64_t read = size != 0 ? file.read(buffer, size) : 0;
    const std::uint64_t got = read <= size ? read : 0;
    // A short read is not reported; what did not come reads as zeros, never as what the memory held before.
    std::memset(static_cast<char*>(buffer) + got, 0, static_cast<std::size_t>(size - got));
}

/// A block of the C allocator, of one byte when `size` is 0.
std::unique_ptr<void, FreeBlock> allocate(std::uint64_t size) {
    void* const block = size < SIZE_MAX ? std::malloc(size != 0 ? static_cast<std::size_t>(size) : 1) : nullptr;
    if (block == nullptr) throw std::bad_alloc();
    return std::unique_ptr<void, FreeBlock>(block);
}

constexpr std::uint64_t mark_bytes = 2;
constexpr std::uint64_t largest_text = std::uint64_t{1} << 40;  // so that no product below can wrap
constexpr bool units_are_characters = sizeof(wchar_t) == 2;

/// A zeroed block for `length` characters and the terminator.
std::unique_ptr<wchar_t, FreeBlock> new_text(std::uint64_t length) {
    auto* const text = static_cast<wchar_t*>(std::calloc(static_cast<std::size_t>(length) + 1, sizeof(wchar_t)));
    if (text == nullptr) throw std::bad_alloc();
    return std::unique_ptr<wchar_t, FreeBlock>(text);
}

void decode_units(const std::uint8_t* bytes, std::uint64_t count, wchar_t* out) {
    const auto unit_at = [bytes](std::uint64_t index) -> std::uint32_t { return kernel::load_u16(bytes + 2 * index); };
    for (std::uint64_t i = 0; i < count; ++i) {
        std::uint32_t character = unit_at(i);
        if (!units_are_characters && kernel::is_high_surrogate(character) && i + 1 < count &&
            kernel::is_low_surrogate(unit_at(i + 1))) {
            character = kernel::join_surrogates(character, unit_at(++i));
        }
        *out++ = static_cast<wchar_t>(character);
    }
}

void append_unit(std::vector<std::uint8_t>& bytes, std::uint32_t unit) {
    bytes.push_back(static_cast<std::uint8_t>(unit));
    bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
}

void append_character(std::vector<std::uint8_t>& bytes, wchar_t letter) {
    const auto character = static_cast<std::uint32_t>(letter);
    if (units_are_characters || character < 0x10000u || character > 0x10FFFFu) {
        append_unit(bytes, character);
        return;
    }
    append_unit(bytes, 0xD800u + ((character - 0x10000u) >> 10));
    append_unit(bytes, 0xDC00u + ((character - 0x10000u) & 0x3FFu));
}

wchar_t* load_text(SFsFile& file, std::uint64_t length) {
    if (length < mark_bytes) return new_text(0).release();  // the only byte of a file is not looked at
    const auto block = allocate(length);
    read_filled(file, block.get(), length);
    const auto* const bytes = static_cast<const std::uint8_t*>(block.get());
    const std::uint64_t units = length / 2 - 1;  // an odd last byte is no unit
    const bool marked = kernel::load_u16(bytes) == 0xFEFFu;
    auto text = new_text(marked ? units : length);
    if (marked) {
        decode_units(bytes + mark_bytes, units, text.get());
    } else {
        platform::narrow_to_wide(static_cast<const char*>(block.get()), static_cast<std::size_t>(length), text.get());
    }
    return text.release();
}

}  // namespace

void* read(const char* path, std::uint64_t* size) {
    void* data = nullptr;
    std::uint64_t length = 0;
    const bool whole = load_binary_file(&data, &length, path);
    if (size != nullptr) *size = whole ? length : 0;
    return data;
}

void read(void* buffer, const char* path, std::uint64_t* size) {
    with_content(path, false, [&](SFsFile& file, std::uint64_t length) {
        if (size != nullptr) *size = length;
        // The buffer's capacity is the caller's word: it must hold the whole file.
        if (buffer != nullptr) file.read(buffer, length);
        return true;
    });
}

std::uint64_t read(std::nullptr_t, void*, std::uint64_t) { return failed_size; }

void* read(std::nullptr_t, std::uint64_t* size) { return read(static_cast<const char*>(nullptr), size); }

bool load_text_file(fs::string& out, const char* path) {
    return with_content(path, false, [&](SFsFile& file, std::uint64_t length) {
        if (length == 0) return true;
        out.resize(length);
        read_filled(file, out.data(), length);
        return true;
    });
}

bool save_text_file(const fs::string& text, const char* path, FFSOpenFlags::FLAGS flags) {
    return save_binary_file(text.data(), text.size(), path, flags);
}

bool save_text_file(const fs::string& text, const char* name, const char* ext, const char* dir) {
    const platform::CalendarTime now = platform::now_local();
    char path[path_capacity];
    const int length = std::snprintf(path, sizeof(path), "%s/%s_%04d%02d%02d_%02d%02d%02d.%s",
                                     dir != nullptr ? dir : "", name != nullptr ? name : "", now.year, now.month,
                                     now.day, now.hour, now.minute, now.second, ext != nullptr ? ext : "");
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof(path)) {
        return refuse(EFSError::INVALID_NAME, dir, "The path of the new file is longer than 259 bytes.");
    }
    return save_text_file(text, path);
}

bool load_binary_file(void** data, std::uint64_t* size, const char* path) {
    if (size != nullptr) *size = 0;
    if (data == nullptr) return refuse(EFSError::INVALID_ARGUMENT, path, "There is no place for the bytes.");
    *data = nullptr;
    return with_content(path, false, [&](SFsFile& file, std::uint64_t length) {
        if (size != nullptr) *size = length;
        auto block = allocate(length);
        read_filled(file, block.get(), length);
        *data = block.release();
        return true;
    });
}

bool save_binary_file(const void* data, std::uint64_t size, const char* path, FFSOpenFlags::FLAGS flags) {
    if (data == nullptr && size != 0) {
        return refuse(EFSError::INVALID_ARGUMENT, path, "There are no bytes to write.");
    }
    return guarded(path, false, [&] {
        FilePtr file(open(path, EFSMode::WRITE, flags));
        return file && write_all(*file, path, data, size) && commit(file.release());
    });
}

wchar_t* load_wide_string(const char* path) {
    return with_content<wchar_t*>(path, nullptr, [&](SFsFile& file, std::uint64_t length) -> wchar_t* {
        if (length <= largest_text) return load_text(file, length);
        return refuse(EFSError::TOO_LARGE, path, "The file is too large for a text in memory."), nullptr;
    });
}

bool save_wide_string(const ztl::string_base<wchar_t>& text, const char* path, FFSOpenFlags::FLAGS flags) {
    return guarded(path, false, [&] {
        std::vector<std::uint8_t> bytes;
        bytes.reserve(text.size() * 2 + mark_bytes);
        append_unit(bytes, 0xFEFFu);
        for (const wchar_t letter : text) append_character(bytes, letter);
        return save_binary_file(bytes.data(), bytes.size(), path, flags);
    });
}

}  // namespace fs
