#pragma once

#include <cstdint>
#include <string_view>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/locating_source.h>
#include <engine/filesystem/contract/native_source.h>
#include <engine/filesystem/contract/read_only_source.h>
#include <engine/filesystem/contract/whole_names.h>

/// Answers from the native file system at the moment it is asked, without a table; a path is taken as the disk's own
/// (its case matters on no system), whole and never by its end. It stands last in the list and is always writable; it
/// creates and lists nothing, as its base has it.
///
/// Times    in 100 ns since 1601, universal, where the directory source speaks of local time.
/// Failure  what cannot be opened, set, renamed or removed leaves the reason in fs::last_error. Nothing throws.
/// Threads  any; it has no state that changes after init.
class ENGINE_FS_API CWin32_fallback : public fs::ReadOnlySource,
                                      public fs::NativeSource,
                                      public fs::WholeNames,
                                      public fs::LocatingSource {
public:
    CWin32_fallback();
    ~CWin32_fallback() override;

    /// Keeps `flags` only.
    bool init(const fs::path& root, FFSAddSourceFlags::ENUM flags, fs::dir_listing* listing) override;
    bool writable() override;
    bool exists(const fs::path& p) override;
    void root_path(fs::path& out, const fs::path& p) override;
    std::int64_t write_time(const fs::path& p) override;
    /// Sets creation, access and write time. True even if the disk refuses: callers rely on it.
    bool set_write_time(const fs::path& p, std::int64_t time) override;
    bool read_only(const fs::path& p) override;
    bool set_read_only(const fs::path& p, bool on) override;
    /// With FFSOpenFlags::GZIP a relative path counts from the directory of the running executable.
    SFsFile* open_read(const fs::path& p, FFSOpenFlags::FLAGS flags) override;
    SFsFile* open_write(const fs::path& p, FFSOpenFlags::FLAGS flags) override;
    SFsFile* open_append(const fs::path& p, FFSOpenFlags::FLAGS flags) override;
    SFsFile* open_read_write(const fs::path& p, FFSOpenFlags::FLAGS flags) override;
    /// Items that begin with "#" stay, and then so does the directory. Links are removed themselves, also when `p` is
    /// one. fs::last_error names the first thing that could not be removed. A directory below is removed by the same
    /// operation, so that a derived class hears of it.
    void rem_dir(const fs::path& p) override;
    bool rem_file(const fs::path& p) override;

    bool rename_file(const fs::path& from, const fs::path& to) override;
    bool native_path(const fs::path& p, char* out, std::size_t capacity) override;
    bool exists_whole(const fs::path& p) override;
    Answer locate(const fs::path& p, FFSOpenFlags::FLAGS flags, Located& out) override;
    SFsFile* open_located(const fs::path& p, FFSOpenFlags::FLAGS flags, const Located& found) override;

private:
    SFsFile* open(const fs::path& p, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags);
    bool remove_items(std::string_view dir);
};
