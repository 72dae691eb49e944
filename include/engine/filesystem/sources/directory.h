#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/followed_source.h>
#include <engine/filesystem/contract/locating_source.h>
#include <engine/filesystem/contract/native_source.h>
#include <engine/filesystem/contract/source.h>
#include <engine/filesystem/contract/whole_names.h>

namespace fs {

struct DirectoryState;

}  // namespace fs

/// A native directory tree whose names are read once, when it is mounted, and asked from memory from then on. Only opens,
/// writes and attribute changes touch the disk. Changes that others make on the disk show after a refresh.
///
/// Lookup   a name is held when file name and directory match; directories match when one is a suffix of the other, and
///          an empty directory in the question takes the first file of that name. A full path below the root means the
///          file there alone, and one elsewhere nothing. FFSOpenFlags::WHOLE_NAME and exists_whole take the name as it
///          is. Names are lower case; the spelling of the disk is kept beside them and used for the disk.
/// Links    are followed, but never to a directory on their own way; one that is reached through another link is followed
///          only where no link has led so far, so that directories which link to each other end.
/// Failure  what answers false, null or -1 of a name that is held, or to be made, leaves the reason in fs::last_error and
///          everything as it was; of a name that is not held it leaves nothing there. Nothing but the constructor throws.
/// Threads  as for every source: the registry's lock guards each call. init runs outside it.
class ENGINE_FS_API CWin32_dir : public CFSSource,
                                 public fs::NativeSource,
                                 public fs::WholeNames,
                                 public fs::LocatingSource,
                                 public fs::FollowedSource {
public:
    /// `include`: null, or a null-terminated list of the only files (directory and name) that are shown.
    explicit CWin32_dir(EFSSourceType::TYPE type, const char* const* include = nullptr);
    ~CWin32_dir() override;

    /// How the disk spells the root, where that may differ from the path that init is given (which is lower case).
    /// Called before init; null or a text that is another path is passed over.
    void set_native_spelling(const char* root);

    /// False when `root` is empty or too long, when flags hold MUST_EXIST and it is no directory, or without memory. A
    /// listing with records is replayed without touching the disk; an empty one is filled by the scan. True also where
    /// directories could not be listed: fs::last_error and one message then say so, and unlisted_directories() how many.
    bool init(const fs::path& root, FFSAddSourceFlags::ENUM flags, fs::dir_listing* listing) override;
    void clear() override;
    const fs::path& path() override;
    FFSAddSourceFlags::ENUM flags() override;
    /// Reads one directory again, without those below it; nothing happens when the tree does not know it. What cannot be
    /// listed keeps its names, here and in refresh; fs::last_error says so.
    void refresh_dir(const char* dir) override;
    void refresh() override;
    bool writable() override;
    EFSSourceType::TYPE type() override;
    bool exists(const fs::path& p) override;
    void full_path(fs::path& out, const fs::path& p) override;
    void root_path(fs::path& out, const fs::path& p) override;
    /// In 100 ns since 1601, local time (the fallback answers universal time).
    std::int64_t write_time(const fs::path& p) override;
    /// `time` is counted alike. True whenever the source holds the file, even if the disk refuses: callers rely on it.
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
    /// Creating keeps the caller's case for what is new, reuses what exists under any case, and refuses an empty path,
    /// one that climbs above the source, and names that Windows cannot hold.
    SFsFile* create_write(const fs::path& p, FFSOpenFlags::FLAGS flags) override;
    SFsFile* create_read_write(const fs::path& p, FFSOpenFlags::FLAGS flags) override;
    bool mkdir(const fs::path& p) override;
    /// Links are removed themselves, never what they point to, also when `p` is one. What cannot be removed stays, and
    /// fs::last_error names the first of it.
    void rem_dir(const fs::path& p) override;
    bool rem_file(const fs::path& p) override;
    FS_NAME* get_file_list(const char* dir, const char* mask, bool recursive) override;
    /// Each name stands in a block of path_capacity bytes.
    FS_NAME* search_substring(const char* text) override;
    fs::dir* dir_tree() override;
    void dump(ztl::vector<fs::string>& lines, const char* ext) override;
    const char* root_dir() override;

    bool rename_file(const fs::path& from, const fs::path& to) override;
    bool native_path(const fs::path& p, char* out, std::size_t capacity) override;
    bool add_file(const fs::path& p, const std::function<bool()>& place) override;
    std::uint32_t unlisted_directories() override;
    bool exists_whole(const fs::path& p) override;
    Answer locate(const fs::path& p, FFSOpenFlags::FLAGS flags, Located& out) override;
    SFsFile* open_located(const fs::path& p, FFSOpenFlags::FLAGS flags, const Located& found) override;
    std::unique_ptr<fs::Follower> make_follower() override;
    std::function<void()> read_anew() override;

private:
    SFsFile* open_existing(const fs::path& p, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags);
    SFsFile* create(const fs::path& p, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags);

    std::unique_ptr<fs::DirectoryState> state_;
};
