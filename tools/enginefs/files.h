#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <engine/filesystem/comfort.h>

#include "names.h"

// Files as they are read, compared and written. What goes wrong is said on standard error.

/// Says why a file cannot be read, by the thread's last failure. Returns false.
bool fail_to_read(const std::string& name, const std::string& otherwise = "it cannot be read");

/// Opens a file for reading; null when it cannot be opened.
fs::file_ptr open_file(const std::string& name);

/// Takes bytes one after another; false stops whoever gives them.
using TakeBytes = std::function<bool(const char* data, std::uint64_t size)>;

/// Reads an open file from its position to its end. False when `take` says so, or when the bytes cannot be read or are not
/// what the source has recorded of them.
bool read_to_end(SFsFile* file, const std::string& name, const TakeBytes& take);

/// The lines of a text file on the disk, empty ones left out, behind those that are there already. False when it cannot be
/// read.
bool read_lines(const std::string& path, std::vector<std::string>& lines);

/// Whether two open files have the same bytes. The command fails, and says why of `told`, when one is null or cannot be
/// read.
bool same_bytes(SFsFile* first, SFsFile* second, const std::string& told);

/// Calls `take(size, crc, files)` for the files of equal content in each group of files of one size. Of every file is asked
/// `crc_of(file, size, crc)`; false when it answers so, and the file is left out. Those of one checksum are compared by `same`.
template <class Sizes, class CrcOf, class Same, class Take>
bool find_equal(const Sizes& sizes, const CrcOf& crc_of, const Same& same, const Take& take) {
    bool good = true;
    for (const auto& [size, files] : sizes) {
        std::map<std::uint32_t, std::vector<typename Sizes::mapped_type>> checksums;
        for (const auto& file : files) {
            std::uint32_t crc = 0;
            if (!crc_of(file, size, crc)) {
                good = false;
                continue;
            }
            auto& classes = checksums[crc];
            const auto known = std::ranges::find_if(classes, [&](const auto& equal) { return same(equal[0], file); });
            (known != classes.end() ? *known : classes.emplace_back()).push_back(file);
        }
        for (const auto& [crc, classes] : checksums)
            for (const auto& equal : classes)
                if (equal.size() > 1) take(size, crc, equal);
    }
    return good;
}

/// "YYYY-MM-DDTHH:MM:SSZ" of the last change of a file on the disk; "" when it cannot be told.
std::string time_on_disk(const std::string& place);
/// The same without zone of a count of 100 ns since 1601, in whatever zone it is.
std::string time_text(std::int64_t ticks);

/// The place below a directory of a name from outside; "" for one that would leave it or that no disk of ours could hold.
std::string safe_name(const std::string& name);

/// Makes a directory of the disk, and those above it. False, with a word of `told`, when it is none then.
bool make_directory(const std::string& told, const std::filesystem::path& path);

/// Removes a file of the disk.
bool remove_on_disk(const std::string& place);

/// A file that is being made. It is written beside its place and put there by finish(), so that what is there stays whole
/// until then, and stays when this ends before. A file of the mounted file system is on the disk by then; of the many below
/// a directory each is not waited for.
class Output {
public:
    ~Output();

    /// Begins a file of this virtual name: a new one in the first source, or in the place of the one that has the name.
    bool open(const std::string& name, FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE);
    /// Begins a file of the disk below a directory, with the directories of its name. Links on the way and in its place
    /// are replaced: what they point to may lie anywhere. `name` is a safe_name.
    bool open_below(const std::filesystem::path& root, const std::string& name);
    bool write(const void* data, std::uint64_t size);
    /// When the file is to have been written last.
    void keep_time(std::filesystem::file_time_type time) { time_ = time; }
    bool finish();

private:
    bool create(const std::string& name, const std::function<SFsFile*()>& open);

    std::string name_;              // as it is told
    std::filesystem::path place_;   // where a file below a directory goes
    std::filesystem::path beside_;  // where that is written; "" when nothing is left there
    fs::file_ptr file_;
    std::optional<std::filesystem::file_time_type> time_;
    const Interruption interruption_;
};

/// Begins the file that is written, as `flags` say, and gives the bytes of the one that is read to `take`. They must not be
/// the same file.
bool copy_to(Output& output, const FromTo& given, const char* label, const TakeBytes& take,
             FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE);
