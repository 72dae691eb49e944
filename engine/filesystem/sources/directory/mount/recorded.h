#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "engine/platform/directories.h"

namespace fs {

/// A recorded listing of a directory source: every directory that its scan entered, in the order of the scan, with its
/// files. Directories are relative to the native root and spelled as the disk spells them.
/// What adds may throw std::bad_alloc.
class dir_listing {
public:
    /// Times that let nobody trust the record.
    static constexpr platform::DirectoryTimes untrusted_times{-1, -1};

    bool is_empty() const { return bytes_.empty(); }
    /// False once something could not be recorded.
    bool is_whole() const { return is_whole_; }
    void spoil() { is_whole_ = false; }
    /// Whether it comes from a file, and is to be checked against the disk before it is used.
    bool is_stored() const { return is_stored_; }
    void clear() { *this = {}; }

    /// Begins a directory; the files that follow are its own.
    void add_directory(std::string_view dir, const platform::DirectoryTimes& times);
    void add_file(std::string_view name);

    std::span<const std::uint8_t> bytes() const { return bytes_; }
    /// The number of files of a stored listing.
    std::size_t files() const { return files_; }
    /// Takes stored bytes. False, and empty, when they are damaged.
    [[nodiscard]] bool assign(std::span<const std::uint8_t> bytes);

private:
    std::uint8_t* extend(std::size_t size);
    void put_text(std::string_view text);

    std::vector<std::uint8_t> bytes_;
    std::size_t count_at_ = 0;  // where the current directory's number of files stands
    bool is_whole_ = true;
    bool is_stored_ = false;
    std::size_t files_ = 0;
};

/// Reads recorded bytes from the front, each length checked against what is left.
class ListingReader {
public:
    /// What a listing holds was checked when it came in.
    explicit ListingReader(const dir_listing& listing) : rest_(listing.bytes()), is_checked_(true) {}
    explicit ListingReader(std::span<const std::uint8_t> bytes) : rest_(bytes), is_checked_(false) {}

    struct Directory {
        std::string_view dir;
        platform::DirectoryTimes times;
        std::uint32_t files = 0;
    };
    bool at_end() const { return rest_.empty(); }
    /// False once the bytes are damaged; so the rest.
    [[nodiscard]] bool read_directory(Directory& out);
    [[nodiscard]] bool read_file(std::string_view& out);
    /// Passes over the files of a directory.
    [[nodiscard]] bool skip_files(std::uint32_t count);

private:
    bool read_text(std::string_view& out);

    std::span<const std::uint8_t> rest_;
    bool is_checked_;
};

/// What a stored listing was recorded for. One recorded for anything else is foreign.
struct ListingKey {
    std::string_view source_path;  // prepared: normalised, lower case, without a last "/"
    std::uint32_t flags = 0;       // those add-source flags that decide what a scan enters
};

/// The bytes of a stored listing. May throw std::bad_alloc.
std::vector<std::uint8_t> encode_listing(const ListingKey& key, const dir_listing& listing);
/// The listing of stored bytes; false, and `out` empty, when they are damaged, cut off, of another version or foreign.
[[nodiscard]] bool decode_listing(const ListingKey& key, std::span<const std::uint8_t> bytes, dir_listing& out);

}  // namespace fs
