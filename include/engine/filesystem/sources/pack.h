#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/file.h>
#include <engine/filesystem/contract/source.h>

namespace fs {

class BlockReader;
class PackArchive;

}  // namespace fs

/// A source over one pack: a zip file of stored or deflated entries, without a comment (docs/packs.md). It is never
/// written to.
///
/// Names    lower case; asked for with the end of a directory only ("b/c.txt" finds "a/b/c.txt"), or without one.
/// Threads  questions and opens from any number of threads between init and clear.
/// Memory   open files share the archive, so that they stay readable after clear and after the source's end.
class ENGINE_FS_API CZip_dir : public CFSSource {
public:
    CZip_dir();
    ~CZip_dir() override;

    /// The spelling of the pack's own path on a disk that tells case apart; given before init. Null: as init spells it.
    void set_native_spelling(const char* native_path);

    /// Reads the pack's directory; with FFSAddSourceFlags::PACK_IN_MEMORY its every byte. False, with the reason in
    /// fs::last_error, when it is no pack. `listing` is not used.
    bool init(const fs::path& root, FFSAddSourceFlags::ENUM flags, fs::dir_listing* listing) override;
    void clear() override;
    const fs::path& path() override;
    FFSAddSourceFlags::ENUM flags() override;
    void refresh_dir(const char* dir) override;
    void refresh() override;
    bool writable() override;
    EFSSourceType::TYPE type() override;
    bool exists(const fs::path& p) override;
    void full_path(fs::path& out, const fs::path& p) override;  // as root_path: an entry has no native path
    void root_path(fs::path& out, const fs::path& p) override;
    std::int64_t write_time(const fs::path& p) override;
    bool set_write_time(const fs::path& p, std::int64_t time) override;
    bool is_protected() override;
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
    fs::dir* dir_tree() override;
    void dump(ztl::vector<fs::string>& lines, const char* ext) override;

private:
    std::shared_ptr<fs::PackArchive> archive_;  // null until init has succeeded
    fs::path path_;
    fs::string native_spelling_;
    FFSAddSourceFlags::ENUM flags_ = FFSAddSourceFlags::NONE;
    std::mutex tree_lock_;  // guards the first filling of tree_
    fs::dir tree_;
    bool tree_wanted_ = false;  // dir_tree was asked for
};

/// An open entry of a pack, decoded in blocks of 32 KiB as it is read. Seeking back within the last two blocks is free,
/// and to what was decoded before it costs at most 2 MiB of decoding.
///
/// A stored entry is for forward reading: after a seek behind the last two blocks its reading goes on from the input
/// that comes next, not from the position.
/// read     0 at the end, and where the entry's deflate stream is damaged; bytes that the pack lost are zeros.
/// seek     always true, whatever the position.
class ENGINE_FS_API SZipFile : public SFsFile {
public:
    SZipFile(CFSSource* owner, std::shared_ptr<fs::PackArchive> archive, std::uint32_t entry);
    ~SZipFile() override;

    std::uint64_t read(void* buffer, std::uint64_t size) override;
    std::uint64_t write(const void* buffer, std::uint64_t size) override;  // 0
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override;
    std::uint64_t length() override;
    std::uint64_t tell() override;

private:
    std::shared_ptr<fs::PackArchive> archive_;
    std::unique_ptr<fs::BlockReader> reader_;  // null until the first read that needs blocks
    std::uint64_t position_ = 0;
    std::uint32_t size_ = 0;
    std::uint32_t entry_ = 0;
};
