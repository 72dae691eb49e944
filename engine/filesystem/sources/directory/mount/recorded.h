#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "engine/platform/directories.h"

namespace fs {

/// What a stored listing was recorded for. One recorded for anything else is foreign.
struct ListingKey {
    std::string_view source_path;  // prepared: normalised, lower case, without a last "/"
    std::uint32_t flags = 0;       // those add-source flags that decide what a scan enters
};

/// A recorded listing of a directory source: every directory that its scan entered, in the order of the scan, with its
/// files. Directories are relative to the native root and spelled as the disk spells them.
/// What adds, encodes or decodes may throw std::bad_alloc.
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
    void add_file(std::string_view name) { put_text(name); }

    std::span<const std::uint8_t> bytes() const { return bytes_; }
    /// The number of files of a stored listing.
    std::size_t files() const { return files_; }

    /// The bytes to store.
    std::vector<std::uint8_t> encode(const ListingKey& key) const;
    /// Takes stored bytes. False, and empty, when they are damaged, cut off, of another version or foreign.
    [[nodiscard]] bool decode(const ListingKey& key, std::span<const std::uint8_t> bytes);

private:
    void put_text(std::string_view text);

    std::vector<std::uint8_t> bytes_;
    bool is_whole_ = true;
    bool is_stored_ = false;
    std::size_t files_ = 0;
};

/// Reads recorded bytes from the front, checked against what is left.
class ListingReader {
public:
    /// What a listing holds was checked when it came in.
    explicit ListingReader(const dir_listing& listing) : rest_(listing.bytes()), is_checked_(true) {}
    explicit ListingReader(std::span<const std::uint8_t> bytes) : rest_(bytes), is_checked_(false) {}

    bool at_end() const { return rest_.empty(); }
    /// Whether another file of the directory follows.
    bool at_file() const { return !at_end() && rest_.front() != 0; }
    /// False once the bytes are damaged; so the next.
    [[nodiscard]] bool read_directory(std::string_view& dir, platform::DirectoryTimes& times);
    [[nodiscard]] bool read_file(std::string_view& name);

private:
    bool read_text(std::string_view& out);

    std::span<const std::uint8_t> rest_;
    bool is_checked_;
};

}  // namespace fs
