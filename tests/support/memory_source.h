#pragma once

#include <engine/filesystem/contract.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace test {

using Bytes = std::shared_ptr<std::string>;

/// An open file over bytes that live as long as somebody uses them.
class MemoryFile : public SFsFile {
public:
    MemoryFile(CFSSource* owner, const char* file_name, Bytes bytes, std::uint64_t position);

    std::uint64_t read(void* buffer, std::uint64_t size) override;
    std::uint64_t write(const void* buffer, std::uint64_t size) override;
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override;
    std::uint64_t length() override { return bytes_->size(); }
    std::uint64_t tell() override { return position_; }

    std::uint64_t capacity = ~std::uint64_t{0};  // writing stops here, as on a full disk

private:
    Bytes bytes_;
    std::uint64_t position_;
};

/// A source such as a caller of the library might write: files in a map, by full lower-case name. What it is asked is
/// counted, and everything about it can be set.
class MemorySource : public CFSSource {
public:
    struct Entry {
        Bytes bytes;
        bool installed = true;
        bool read_only = false;
        std::int64_t time = 0;
    };

    /// `*destroyed` is set when the source goes.
    explicit MemorySource(const char* mount_path, EFSSourceType::TYPE type = EFSSourceType::DIR,
                          FFSAddSourceFlags::ENUM flags = FFSAddSourceFlags::NONE, bool* destroyed = nullptr);
    ~MemorySource() override;

    void add(const std::string& name, const std::string& content);
    /// The content of a file; "(none)" when it is not held.
    std::string content(const std::string& name) const;

    bool init(const fs::path& root, FFSAddSourceFlags::ENUM flags, fs::dir_listing* listing) override;
    void clear() override;
    const fs::path& path() override { return path_; }
    FFSAddSourceFlags::ENUM flags() override { return flags_; }
    void refresh_dir(const char* dir) override { refreshed_dirs.emplace_back(dir); }
    void refresh() override { ++refreshes; }
    bool writable() override { return is_writable; }
    EFSSourceType::TYPE type() override { return type_; }
    bool exists(const fs::path& p) override { return find(p) != nullptr; }
    void full_path(fs::path& out, const fs::path& p) override;
    void root_path(fs::path& out, const fs::path& p) override;
    std::int64_t write_time(const fs::path& p) override;
    bool set_write_time(const fs::path& p, std::int64_t time) override;
    bool is_protected() override { return is_shielding; }
    bool read_only(const fs::path& p) override;
    bool set_read_only(const fs::path& p, bool on) override;
    void mark_installed_all(bool on) override;
    void mark_installed(const fs::path& p, bool on) override;
    int is_installed(const fs::path& p) override;
    SFsFile* open_read(const fs::path& p, FFSOpenFlags::FLAGS flags) override;
    SFsFile* open_write(const fs::path& p, FFSOpenFlags::FLAGS flags) override;
    SFsFile* open_append(const fs::path& p, FFSOpenFlags::FLAGS flags) override;
    SFsFile* open_read_write(const fs::path& p, FFSOpenFlags::FLAGS flags) override;
    SFsFile* create_write(const fs::path& p, FFSOpenFlags::FLAGS flags) override;
    SFsFile* create_read_write(const fs::path& p, FFSOpenFlags::FLAGS flags) override;
    bool mkdir(const fs::path& p) override;
    void rem_dir(const fs::path& p) override;
    bool rem_file(const fs::path& p) override;
    FS_NAME* get_file_list(const char* dir, const char* mask, bool flag) override;
    FS_NAME* search_substring(const char* text) override;
    fs::dir* dir_tree() override { return has_tree ? &tree : nullptr; }

    bool is_writable = true;
    bool is_shielding = false;
    bool refuses_to_open = false;  // holds its files and opens none
    bool matches_by_end = false;   // a name without a directory finds the first file of that name, wherever it lies
    bool is_silent = false;        // opens nothing for writing, and gives no reason
    EFSError::TYPE write_failure = EFSError::NONE;  // of every open for writing, which it then stores
    bool refuses_to_remove = false;
    bool has_tree = true;
    bool lists_twice = false;                         // every name, as a careless source might
    std::uint64_t file_capacity = ~std::uint64_t{0};  // of every file opened for writing
    fs::dir tree;
    int refreshes = 0;
    std::vector<std::string> refreshed_dirs;
    std::vector<std::string> made;                // "create_write NAME", "mkdir DIR" and the like, in the caller's case
    std::vector<FFSOpenFlags::FLAGS> open_flags;  // of every open that was asked for writing
    std::atomic<int> reads_asked{0};
    std::atomic<FFSOpenFlags::FLAGS> read_flags{FFSOpenFlags::NONE};  // of the latest of them

private:
    Entry* find(const fs::path& p);
    std::string held_name(const fs::path& p) const;
    SFsFile* open_at(const fs::path& p, bool truncate, bool at_end, FFSOpenFlags::FLAGS flags);
    SFsFile* create(const char* how, const fs::path& p, FFSOpenFlags::FLAGS flags);

    fs::path path_;
    EFSSourceType::TYPE type_;
    FFSAddSourceFlags::ENUM flags_;
    bool* destroyed_;
    std::map<std::string, Entry> files_;
};

/// Registers a new source and keeps only a pointer to it.
MemorySource* mount_memory(const char* mount_path, EFSSourceType::TYPE type = EFSSourceType::DIR,
                           FFSAddSourceFlags::ENUM flags = FFSAddSourceFlags::NONE);

/// Takes every source out of the registry and destroys it, whether it was started or not.
void unmount_all();

/// The names of a list, which is freed.
std::vector<std::string> take_names(FS_NAME* names);

}  // namespace test
