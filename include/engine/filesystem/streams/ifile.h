#pragma once

#include <bit>
#include <cstdint>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/flags.h>
#include <engine/kernel/ztl.h>

namespace fs {

/// A stream of bytes, with typed accessors whose encoding is the same for every stream. The order of the virtual
/// operations is part of the contract. Encodings: docs/formats.md, "Typed encoding".
///
/// Failure  all bits set from the operations that return a size, false from the others; nothing throws. A read or write
///          that fails sets fs::last_error, also when it returns what it moved before; coming to the end of the stream
///          never does. So whoever must tell the two apart clears it first.
/// Threads  one thread at a time.
/// Typed    reading checks no byte counts: a short stream leaves the rest of the value as it was. Whoever must know
///          compares tell() with what was expected.
class ENGINE_FS_API ifile {
public:
    virtual ~ifile();

    virtual bool open(const char* name, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE) = 0;
    virtual void close() = 0;
    virtual std::uint64_t length() = 0;
    virtual std::uint64_t tell() = 0;
    virtual bool seek(std::int64_t offset, EFSSeek::TYPE origin) = 0;
    /// Bytes read, less than `size` at the end of the stream.
    virtual std::uint64_t read(void* buffer, std::uint64_t size) = 0;
    /// Bytes written.
    virtual std::uint64_t write(const void* data, std::uint64_t size) = 0;
    /// tell() == length(); true also where both are unknown.
    virtual bool eof();
    /// Ends the stream at its position.
    virtual void set_eof() = 0;
    virtual const char* name() const = 0;

    void put_bool(bool value) {
        const std::uint8_t byte = value ? 1 : 0;
        write(&byte, 1);
    }
    void put_int(int value) { put_uint(static_cast<unsigned>(value)); }
    void put_uint(unsigned value) {
        const std::uint32_t stored = swap_unless_little(value);
        write(&stored, sizeof(stored));
    }
    void put_float(float value) { put_uint(std::bit_cast<std::uint32_t>(value)); }

    // Bytes that the stream does not hold read as 0.
    bool get_bool() {
        std::uint8_t byte = 0;
        read(&byte, 1);
        return byte != 0;
    }
    int get_int() { return static_cast<int>(get_uint()); }
    unsigned get_uint() {
        std::uint32_t stored = 0;
        read(&stored, sizeof(stored));
        return swap_unless_little(stored);
    }
    float get_float() { return std::bit_cast<float>(static_cast<std::uint32_t>(get_uint())); }

    /// Takes exactly the types below: a number or another pointer would otherwise slip through as bool.
    template <class Other>
    ifile& operator<<(Other value) = delete;
    ifile& operator<<(bool value);
    // Null is the empty text. Only the low 16 bits of a text's length are kept: one of 65536 characters or more is cut
    // to its length modulo 65536, on purpose.
    ifile& operator<<(const char* text);
    ifile& operator<<(char* text);
    ifile& operator<<(const wchar_t* text);
    ifile& operator<<(wchar_t* text);
    ifile& operator<<(const ztl::string_base<char>& text);
    ifile& operator<<(ztl::string_base<char>& text);
    ifile& operator<<(const ztl::string_base<wchar_t>& text);
    ifile& operator<<(ztl::string_base<wchar_t>& text);
    ifile& operator<<(const ztl::vector<ztl::string_base<char>>& texts);

    ifile& operator>>(bool& value);
    /// Into the caller's buffer, which must hold 65536 characters unless the caller knows better. Null skips the text.
    ifile& operator>>(char* text);
    ifile& operator>>(wchar_t* text);
    /// Frees what the pointer held (a block of the C allocator, or null) and allocates anew; an empty text is null.
    ifile& operator>>(char** text);
    ifile& operator>>(const char** text);
    ifile& operator>>(wchar_t** text);
    ifile& operator>>(const wchar_t** text);
    ifile& operator>>(ztl::string_base<char>& text);
    ifile& operator>>(ztl::string_base<wchar_t>& text);
    /// Appends to what the vector holds, on purpose. Ends at the first element that the stream does not hold.
    ifile& operator>>(ztl::vector<ztl::string_base<char>>& texts);

    /// Writes the formatted characters, without a terminator. Their count, or -1 when they cannot be formatted.
    int printf(const char* format, ...);
    /// `text` is the format: "%%" writes "%". -1, with nothing written, when it would need an argument.
    int printf(const ztl::string_base<char>& text);

private:
    // One 4-byte value, not four bytes: the stream's copy of it must not wait for four stores to meet.
    static constexpr std::uint32_t swap_unless_little(std::uint32_t value) {
        if constexpr (std::endian::native == std::endian::little) return value;
        return value >> 24 | (value >> 8 & 0xFF00) | (value << 8 & 0xFF0000) | value << 24;
    }
};

}  // namespace fs
