#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "files.h"

/// What 32 bits of a zip hold at the most: the bytes of an entry, and of a pack.
inline constexpr std::uint64_t most_bytes = 0xFFFFFFFE;

/// Packs keep local time. The offset of a quarter of an hour is asked for once: the C library takes a while for it.
class LocalTimes {
public:
    /// ns since 1970, universal time, of the ticks of a pack.
    std::int64_t time_of(std::int64_t ticks);

private:
    std::unordered_map<std::int64_t, std::int64_t> offsets_;
};

/// What a directory or a pack shows where it is mounted by itself. What goes wrong is said on standard error.
/// Threads  once it is open, any number may ask and open files.
class Tree {
public:
    /// `path` as somebody typed it.
    bool open(const std::string& path);
    bool open_directory(const std::string& path);
    bool open_pack(const std::string& path);
    bool is_pack() const { return directory_ == nullptr; }
    /// False when the disk kept names back, which would be missing without a word.
    bool is_whole() const;

    /// In lower case and in their order, each once.
    const std::vector<std::string>& names() const { return names_; }
    bool holds(const std::string& name) const;
    /// Whether there are files below a directory of this name.
    bool holds_below(const std::string& directory) const;
    /// Entries as a pack records them, in its order; none for a directory.
    const ztl::vector<SFsPackEntry>& entries() const { return entries_; }

    /// A file of just this name; null with the reason in fs::last_error, of which nothing is said.
    fs::file_ptr open_file(const std::string& name) const;
    /// Reads one to its end, which holds it against its checksum. `label` is what is told of.
    bool read(const std::string& name, const std::string& label, const TakeBytes& take) const;
    /// Bytes of a file, or `failed` when it is not there or may not be read.
    std::uint64_t size_of(const std::string& name) const;
    bool crc_of(const std::string& name, std::uint32_t& crc) const;
    /// 100 ns since 1601 in local time, as packs keep it; below 0 when it is not known.
    std::int64_t time_of(const std::string& name) const;
    /// Where the disk holds it, as it is spelled there.
    std::string native_path(const std::string& name) const;

private:
    bool mount(const std::string& full);
    const SFsPackEntry* entry_of(const std::string& name) const;

    std::string path_;
    ztl::vector<SFsPackEntry> entries_;
    std::map<std::string, const SFsPackEntry*> shown_;  // by their names in lower case
    std::unique_ptr<CFSSource> source_;
    CWin32_dir* directory_ = nullptr;  // the source, when it is one
    std::string unlisted_;             // why names are missing
    std::vector<std::string> names_;
};
