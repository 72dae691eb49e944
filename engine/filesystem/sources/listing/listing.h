#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "engine/filesystem/sources/directory/file_table_array.h"
#include "engine/platform/directories.h"

namespace fs {

/// A recorded listing of a directory source: every directory that its scan entered, in the order of the scan, with its
/// files. Directories are relative to the native root and spelled as the disk spells them.
class dir_listing {
public:
    /// Times that let nobody trust the record.
    static constexpr platform::DirectoryTimes untrusted_times{-1, -1};

    bool is_empty() const { return bytes_.size() == 0; }
    /// False once something could not be recorded.
    bool is_whole() const { return is_whole_; }
    void spoil() { is_whole_ = false; }
    /// Whether it comes from a file, and is to be held against the disk before it is used.
    bool is_stored() const { return is_stored_; }
    void clear();

    /// Begins a directory; the files that follow are its own.
    void add_directory(std::string_view dir, const platform::DirectoryTimes& times);
    void add_file(std::string_view name);

    const PodArray<unsigned char>& bytes() const { return bytes_; }
    /// The number of files of a stored listing.
    std::size_t files() const { return files_; }
    /// Takes stored bytes. False, and empty, when they are damaged or memory cannot be had.
    [[nodiscard]] bool assign(const unsigned char* bytes, std::size_t size);

private:
    void put_text(std::string_view text);

    PodArray<unsigned char> bytes_;
    std::size_t count_at_ = 0;  // where the current directory's number of files stands
    bool is_whole_ = true;
    bool is_stored_ = false;
    std::size_t files_ = 0;
};

/// Reads recorded bytes from the front, each length held against what is left.
class ListingReader {
public:
    /// What a listing holds was checked when it came in.
    explicit ListingReader(const dir_listing& listing)
        : ListingReader(listing.bytes().data(), listing.bytes().size(), true) {}
    ListingReader(const unsigned char* bytes, std::size_t size) : ListingReader(bytes, size, false) {}

    struct Directory {
        std::string_view dir;
        platform::DirectoryTimes times;
        std::uint32_t files = 0;
    };
    bool at_end() const { return next_ == end_; }
    /// False once the bytes are damaged.
    [[nodiscard]] bool read_directory(Directory& out);
    [[nodiscard]] bool read_file(std::string_view& out);
    /// Passes over the files of a directory.
    [[nodiscard]] bool skip_files(std::uint32_t count);

private:
    ListingReader(const unsigned char* bytes, std::size_t size, bool is_checked)
        : next_(bytes), end_(bytes + size), is_checked_(is_checked) {}

    std::size_t left() const { return static_cast<std::size_t>(end_ - next_); }
    std::uint64_t take(int bytes);
    bool read_text(std::string_view& out);

    const unsigned char* next_;
    const unsigned char* end_;
    bool is_checked_;
};

}  // namespace fs
