// Typed encodings over the byte operations of a stream. Integers go least significant byte first; a text is its 16-bit
// length and its bytes or units, without a terminator. The readers check no byte counts: what a short stream does not
// hold stays as it was, so each of them starts from memory that is defined.
#include <engine/filesystem/streams/ifile.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <new>

#include "engine/filesystem/streams/wide_units.h"

namespace fs {

namespace {

constexpr std::size_t scratch_size = 1024;

void write_count(ifile& stream, std::uint16_t count) {
    const std::uint8_t bytes[2] = {static_cast<std::uint8_t>(count), static_cast<std::uint8_t>(count >> 8)};
    stream.write(bytes, sizeof(bytes));
}

/// Starts from 0, so that a missing length is the empty text. False when it is not there as a whole.
bool read_count(ifile& stream, std::uint16_t& count) {
    std::uint8_t bytes[2] = {};
    const bool whole = stream.read(bytes, sizeof(bytes)) == sizeof(bytes);
    count = static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
    return whole;
}

/// Only the low 16 bits of the length are kept, on purpose: readers rely on the prefix.
void write_text(ifile& stream, const char* text, std::size_t length) {
    const auto count = static_cast<std::uint16_t>(length);
    write_count(stream, count);
    if (count != 0) stream.write(text, count);
}

void write_text(ifile& stream, const wchar_t* text, std::size_t length) {
    auto left = static_cast<std::uint16_t>(count_units(text, length));
    write_count(stream, left);
    UnitReader units(text);
    while (left != 0) {
        std::uint8_t bytes[scratch_size];
        const auto now = static_cast<std::uint16_t>(std::min<std::size_t>(left, scratch_size / 2));
        for (std::size_t i = 0; i < now; ++i) {
            const std::uint16_t unit = units.next();
            bytes[2 * i] = static_cast<std::uint8_t>(unit);
            bytes[2 * i + 1] = static_cast<std::uint8_t>(unit >> 8);
        }
        stream.write(bytes, now * 2u);
        left = static_cast<std::uint16_t>(left - now);
    }
}

/// Reads `count` units into `out` (room for as many characters) and returns how many characters they make; a unit that
/// the stream does not hold counts as one and stays as it was.
std::size_t read_units(ifile& stream, std::uint16_t count, wchar_t* out) {
    CharacterWriter characters(out);
    std::size_t left = count;
    while (left != 0) {
        std::uint8_t bytes[scratch_size];
        const std::size_t now = std::min<std::size_t>(left, scratch_size / 2);
        const std::uint64_t got = stream.read(bytes, now * 2);
        const std::size_t whole = got > now * 2 ? 0 : static_cast<std::size_t>(got / 2);
        for (std::size_t i = 0; i < whole; ++i)
            characters.add(static_cast<std::uint16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8));
        left -= whole;
        if (whole != now) break;
    }
    return characters.count() + left;
}

void discard(ifile& stream, std::uint32_t size) {
    std::uint8_t bytes[scratch_size];
    while (size != 0) {
        const std::uint32_t now = std::min<std::uint32_t>(size, scratch_size);
        if (stream.read(bytes, now) != now) return;
        size -= now;
    }
}

std::size_t read_characters(ifile& stream, std::uint16_t count, char* out) {
    stream.read(out, count);
    return count;
}

std::size_t read_characters(ifile& stream, std::uint16_t count, wchar_t* out) { return read_units(stream, count, out); }

template <class Char>
void read_into_buffer(ifile& stream, Char* text) {
    constexpr std::uint32_t unit_size = sizeof(Char) == 1 ? 1 : 2;
    std::uint16_t count = 0;
    read_count(stream, count);
    if (text == nullptr) return discard(stream, count * unit_size);
    // The caller answers for the size of the buffer.
    const std::size_t length = count == 0 ? 0 : read_characters(stream, count, text);
    text[length] = 0;
}

template <class Char>
void read_into_pointer(ifile& stream, Char*& text) {
    std::free(text);
    text = nullptr;
    std::uint16_t count = 0;
    read_count(stream, count);
    if (count == 0) return;
    text = static_cast<Char*>(std::calloc(count + std::size_t{1}, sizeof(Char)));
    if (text == nullptr) return discard(stream, count * (sizeof(Char) == 1 ? 1u : 2u));
    text[read_characters(stream, count, text)] = 0;
}

/// False when the length is not there.
template <class Char>
bool read_into_string(ifile& stream, ztl::string_base<Char>& text) {
    std::uint16_t count = 0;
    const bool whole = read_count(stream, count);
    try {
        text.resize(count);
    } catch (const std::bad_alloc&) {
        text.clear();
        discard(stream, count * (sizeof(Char) == 1 ? 1u : 2u));
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

/// Gathers small pieces, so that a vector of short texts costs few calls of the stream's write.
class Gatherer {
public:
    explicit Gatherer(ifile& stream) : stream_(stream) {}
    ~Gatherer() { flush(); }
    Gatherer(const Gatherer&) = delete;
    Gatherer& operator=(const Gatherer&) = delete;

    void put(const void* data, std::size_t size) {
        if (size > sizeof(bytes_) - used_) flush();
        if (size > sizeof(bytes_)) {
            stream_.write(data, size);
            return;
        }
        std::memcpy(bytes_ + used_, data, size);
        used_ += size;
    }

private:
    void flush() {
        if (used_ != 0) stream_.write(bytes_, used_);
        used_ = 0;
    }

    ifile& stream_;
    std::size_t used_ = 0;
    std::uint8_t bytes_[4 * scratch_size] = {};
};

}  // namespace

ifile::~ifile() = default;

bool ifile::eof() { return tell() == length(); }

ifile& ifile::operator<<(bool value) {
    put_bool(value);
    return *this;
}

ifile& ifile::operator<<(const char* text) {
    write_text(*this, text, text == nullptr ? 0 : std::strlen(text));
    return *this;
}

ifile& ifile::operator<<(char* text) { return *this << const_cast<const char*>(text); }

ifile& ifile::operator<<(const wchar_t* text) {
    write_text(*this, text, text == nullptr ? 0 : std::wcslen(text));
    return *this;
}

ifile& ifile::operator<<(wchar_t* text) { return *this << const_cast<const wchar_t*>(text); }

ifile& ifile::operator<<(const ztl::string_base<char>& text) {
    write_text(*this, text.data(), text.size());
    return *this;
}

ifile& ifile::operator<<(ztl::string_base<char>& text) {
    return *this << const_cast<const ztl::string_base<char>&>(text);
}

ifile& ifile::operator<<(const ztl::string_base<wchar_t>& text) {
    write_text(*this, text.data(), text.size());
    return *this;
}

ifile& ifile::operator<<(ztl::string_base<wchar_t>& text) {
    return *this << const_cast<const ztl::string_base<wchar_t>&>(text);
}

ifile& ifile::operator<<(const ztl::vector<ztl::string_base<char>>& texts) {
    Gatherer out(*this);
    const auto elements = static_cast<std::uint32_t>(texts.size());
    const std::uint8_t header[4] = {static_cast<std::uint8_t>(elements), static_cast<std::uint8_t>(elements >> 8),
                                    static_cast<std::uint8_t>(elements >> 16),
                                    static_cast<std::uint8_t>(elements >> 24)};
    out.put(header, sizeof(header));
    for (std::uint32_t i = 0; i < elements; ++i) {
        const ztl::string_base<char>& text = texts[i];
        const auto count = static_cast<std::uint16_t>(text.size());
        const std::uint8_t bytes[2] = {static_cast<std::uint8_t>(count), static_cast<std::uint8_t>(count >> 8)};
        out.put(bytes, sizeof(bytes));
        out.put(text.data(), count);
    }
    return *this;
}

ifile& ifile::operator>>(bool& value) {
    std::uint8_t byte = value ? 1 : 0;
    read(&byte, 1);
    value = byte != 0;
    return *this;
}

ifile& ifile::operator>>(char* text) {
    read_into_buffer(*this, text);
    return *this;
}

ifile& ifile::operator>>(wchar_t* text) {
    read_into_buffer(*this, text);
    return *this;
}

ifile& ifile::operator>>(char** text) {
    if (text != nullptr) read_into_pointer(*this, *text);
    return *this;
}

ifile& ifile::operator>>(const char** text) { return *this >> const_cast<char**>(text); }

ifile& ifile::operator>>(wchar_t** text) {
    if (text != nullptr) read_into_pointer(*this, *text);
    return *this;
}

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
    try {
        texts.reserve(texts.size() + credible_elements(*this, elements));
        for (std::uint32_t i = 0; i < elements; ++i) {
            if (read_into_string(*this, texts.emplace_back())) continue;
            texts.pop_back();
            break;
        }
    } catch (const std::bad_alloc&) {
        return *this;
    }
    return *this;
}

}  // namespace fs
