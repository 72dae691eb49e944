// Typed encodings over the byte operations of a stream. Integers go least significant byte first; a text is its 16-bit
// length and its bytes or units, without a terminator. The readers check no byte counts: what a short stream does not
// hold stays as it was, so each of them starts from memory that is defined.
#include <engine/filesystem/streams/ifile.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "engine/filesystem/contract/failure.h"
#include "engine/kernel/text.h"

namespace fs {

namespace {

constexpr std::size_t scratch_size = 1024;
constexpr std::size_t gathered_size = 4096;
constexpr std::size_t first_format_size = 256;

template <class Char>
constexpr std::uint32_t unit_size = sizeof(Char) == 1 ? 1 : 2;  // in the file

/// Starts from 0, so that a missing length is the empty text. False when it is not there as a whole.
bool read_count(ifile& stream, std::uint16_t& count) {
    std::uint8_t bytes[2] = {};
    const bool whole = stream.read(bytes, sizeof(bytes)) == sizeof(bytes);
    count = kernel::load_u16(bytes);
    return whole;
}

/// Only the low 16 bits of the length are kept, on purpose: readers rely on the prefix.
ifile& write_text(ifile& stream, const char* text, std::size_t length) {
    const auto count = static_cast<std::uint16_t>(length);
    std::uint8_t bytes[2];
    kernel::store_u16(bytes, count);
    stream.write(bytes, sizeof(bytes));
    if (count != 0) stream.write(text, count);
    return stream;
}

/// Wide text is 16-bit units in files. Where wchar_t is wider, pairs of surrogates become one character and back; a lone
/// one passes as it is, and what no pair can say becomes U+FFFD.
std::u16string units_of(const wchar_t* text, std::size_t length) {
    std::u16string units;
    units.reserve(length);
    for (std::size_t i = 0; i < length; ++i) {
        const std::uint32_t code = static_cast<std::make_unsigned_t<wchar_t>>(text[i]);
        if (code > 0xFFFF && code <= 0x10FFFF) {
            units.push_back(static_cast<char16_t>(0xD800 | (code - 0x10000) >> 10));
            units.push_back(static_cast<char16_t>(0xDC00 | (code & 0x3FF)));
        } else {
            units.push_back(static_cast<char16_t>(code <= 0xFFFF ? code : 0xFFFD));
        }
    }
    return units;
}

ifile& write_text(ifile& stream, const wchar_t* text, std::size_t length) {
    guarded(stream.name(), [&] {
        const std::u16string units = units_of(text, length);
        const auto count = static_cast<std::uint16_t>(units.size());
        std::vector<std::uint8_t> bytes(2u + 2u * count);
        kernel::store_u16(bytes.data(), count);
        for (std::size_t i = 0; i < count; ++i) kernel::store_u16(&bytes[2 + 2 * i], units[i]);
        stream.write(bytes.data(), bytes.size());
    });
    return stream;
}

/// Reads `count` bytes or units into `out`, which has room for as many characters, and returns how many characters they
/// make; what the stream does not hold counts too, and stays as it was.
std::size_t read_characters(ifile& stream, std::uint16_t count, char* out) {
    stream.read(out, count);
    return count;
}

std::size_t read_characters(ifile& stream, std::uint16_t count, wchar_t* out) {
    wchar_t* end = out;
    std::uint32_t high = 0;  // the unit before, unless a pair ended with it
    std::size_t left = count;
    while (left != 0) {
        std::uint8_t bytes[scratch_size];
        const std::size_t now = std::min<std::size_t>(left, scratch_size / 2);
        const std::uint64_t got = stream.read(bytes, now * 2);
        const std::size_t whole = got > now * 2 ? 0 : static_cast<std::size_t>(got / 2);
        for (std::size_t i = 0; i < whole; ++i) {
            const std::uint32_t unit = kernel::load_u16(bytes + 2 * i);
            const bool joins = sizeof(wchar_t) > 2 && kernel::is_high_surrogate(high) && kernel::is_low_surrogate(unit);
            if (joins)
                end[-1] = static_cast<wchar_t>(kernel::join_surrogates(high, unit));
            else
                *end++ = static_cast<wchar_t>(unit);
            high = joins ? 0 : unit;
        }
        left -= whole;
        if (whole != now) break;
    }
    return static_cast<std::size_t>(end - out) + left;
}

ifile& discard(ifile& stream, std::uint32_t size) {
    std::uint8_t bytes[scratch_size];
    while (size != 0) {
        const std::uint32_t now = std::min<std::uint32_t>(size, scratch_size);
        if (stream.read(bytes, now) != now) break;
        size -= now;
    }
    return stream;
}

template <class Char>
ifile& read_into_buffer(ifile& stream, Char* text) {
    std::uint16_t count = 0;
    read_count(stream, count);
    if (text == nullptr) return discard(stream, count * unit_size<Char>);
    // The caller answers for the size of the buffer.
    const std::size_t length = count == 0 ? 0 : read_characters(stream, count, text);
    text[length] = 0;
    return stream;
}

template <class Char>
ifile& read_into_pointer(ifile& stream, Char** out) {
    if (out == nullptr) return stream;
    std::free(std::exchange(*out, nullptr));
    std::uint16_t count = 0;
    read_count(stream, count);
    if (count == 0) return stream;
    auto* const text = static_cast<Char*>(std::calloc(count + std::size_t{1}, sizeof(Char)));
    if (text == nullptr) {
        set_error(EFSError::OUT_OF_MEMORY, stream.name(), "There is no memory for a text.");
        return discard(stream, count * unit_size<Char>);
    }
    text[read_characters(stream, count, text)] = 0;
    *out = text;
    return stream;
}

/// False when the length is not there.
template <class Char>
bool read_into_string(ifile& stream, ztl::string_base<Char>& text) {
    std::uint16_t count = 0;
    const bool whole = read_count(stream, count);
    const bool has_memory = guarded(stream.name(), false, [&] { return text.resize(count), true; });
    if (!has_memory) {
        text.clear();
        discard(stream, count * unit_size<Char>);
        return whole;
    }
    if (count != 0) text.resize(read_characters(stream, count, text.data()));
    return whole;
}

/// How many elements to make room for. The count comes from outside: no more than the stream has room for lengths, and
/// no more than is worth the trouble.
std::uint32_t credible_elements(ifile& stream, std::uint32_t count) {
    constexpr std::uint32_t enough = 1 << 20;
    const std::uint64_t length = stream.length();
    const std::uint64_t position = stream.tell();
    if (length == UINT64_MAX || position >= length) return 0;
    return static_cast<std::uint32_t>(std::min<std::uint64_t>({count, (length - position) / 2, enough}));
}

/// The text with each "%%" made "%". False when it would need an argument, or is no format at all.
bool expand_without_arguments(const char* format, fs::string& out) {
    for (; *format != '\0'; ++format) {
        if (*format == '%' && *++format != '%') return false;
        out.push_back(*format);
    }
    return out.size() <= static_cast<std::size_t>(std::numeric_limits<int>::max());
}

int unprintable(const char* text) {
    set_error(EFSError::INVALID_ARGUMENT, "", text);
    return -1;
}

}  // namespace

ifile::~ifile() = default;

bool ifile::eof() { return tell() == length(); }

ifile& ifile::operator<<(bool value) {
    put_bool(value);
    return *this;
}

ifile& ifile::operator<<(const char* text) { return write_text(*this, text, text == nullptr ? 0 : std::strlen(text)); }

ifile& ifile::operator<<(char* text) { return *this << static_cast<const char*>(text); }

ifile& ifile::operator<<(const wchar_t* text) {
    return write_text(*this, text, text == nullptr ? 0 : std::wcslen(text));
}

ifile& ifile::operator<<(wchar_t* text) { return *this << static_cast<const wchar_t*>(text); }

ifile& ifile::operator<<(const ztl::string_base<char>& text) { return write_text(*this, text.data(), text.size()); }

ifile& ifile::operator<<(ztl::string_base<char>& text) { return *this << std::as_const(text); }

ifile& ifile::operator<<(const ztl::string_base<wchar_t>& text) { return write_text(*this, text.data(), text.size()); }

ifile& ifile::operator<<(ztl::string_base<wchar_t>& text) { return *this << std::as_const(text); }

ifile& ifile::operator<<(const ztl::vector<ztl::string_base<char>>& texts) {
    guarded(name(), [&] {
        std::string bytes;  // gathered, so that many short texts cost few writes
        const auto put = [&bytes](std::uint32_t number, std::size_t size) {
            std::uint8_t stored[4];
            kernel::store_u32(stored, number);
            bytes.append(reinterpret_cast<const char*>(stored), size);
        };
        const auto elements = static_cast<std::uint32_t>(texts.size());
        put(elements, 4);
        for (std::uint32_t i = 0; i < elements; ++i) {
            const auto count = static_cast<std::uint16_t>(texts[i].size());
            put(count, 2);
            bytes.append(texts[i], 0, count);
            if (bytes.size() < gathered_size) continue;
            write(bytes.data(), bytes.size());
            bytes.clear();
        }
        if (!bytes.empty()) write(bytes.data(), bytes.size());
    });
    return *this;
}

ifile& ifile::operator>>(bool& value) {
    std::uint8_t byte = value ? 1 : 0;
    read(&byte, 1);
    value = byte != 0;
    return *this;
}

ifile& ifile::operator>>(char* text) { return read_into_buffer(*this, text); }

ifile& ifile::operator>>(wchar_t* text) { return read_into_buffer(*this, text); }

ifile& ifile::operator>>(char** text) { return read_into_pointer(*this, text); }

ifile& ifile::operator>>(const char** text) { return *this >> const_cast<char**>(text); }

ifile& ifile::operator>>(wchar_t** text) { return read_into_pointer(*this, text); }

ifile& ifile::operator>>(const wchar_t** text) { return *this >> const_cast<wchar_t**>(text); }

ifile& ifile::operator>>(ztl::string_base<char>& text) {
    read_into_string(*this, text);
    return *this;
}

ifile& ifile::operator>>(ztl::string_base<wchar_t>& text) {
    read_into_string(*this, text);
    return *this;
}

ifile& ifile::operator>>(ztl::vector<ztl::string_base<char>>& texts) {
    const std::uint32_t elements = get_uint();
    guarded(name(), [&] {
        texts.reserve(texts.size() + credible_elements(*this, elements));
        for (std::uint32_t i = 0; i < elements; ++i) {
            if (read_into_string(*this, texts.emplace_back())) continue;
            texts.pop_back();
            break;
        }
    });
    return *this;
}

int ifile::printf(const char* format, ...) {
    if (format == nullptr) format = "";
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int length = guarded(name(), -1, [&] {
        char small[first_format_size];
        const int needed = kernel::format_text(small, sizeof(small), format, args);
        if (needed < 0) return unprintable("The text cannot be formatted.");
        const auto size = static_cast<std::size_t>(needed);
        const std::unique_ptr<char[]> large(size < sizeof(small) ? nullptr : new char[size + 1]);
        if (large != nullptr) kernel::format_text(large.get(), size + 1, format, again);
        write(large != nullptr ? large.get() : small, size);
        return needed;
    });
    va_end(again);
    va_end(args);
    return length;
}

int ifile::printf(const ztl::string_base<char>& text) {
    return guarded(name(), -1, [&] {
        fs::string expanded;
        if (!expand_without_arguments(text.c_str(), expanded))
            return unprintable("The text is a format that wants arguments.");
        write(expanded.data(), expanded.size());
        return static_cast<int>(expanded.size());
    });
}

}  // namespace fs
