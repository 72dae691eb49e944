#pragma once

#include <cstdint>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/source.h>

namespace fs {

/// A base for sources that are never changed: everything that creates, changes or removes answers no, and there are no
/// times, lists or tree until the derived class gives them. What is left to write is `exists` and `open_read`, and
/// `root_path` where the source holds a file under another name than it is asked for.
///
/// Owns     the path and the flags that it was mounted with.
/// Threads  as CFSSource has them; the answers here need no lock.
class ENGINE_FS_API ReadOnlySource : public CFSSource {
public:
    /// Keeps path and flags; true.
    bool init(const fs::path& root, FFSAddSourceFlags::ENUM flags, fs::dir_listing* listing) override;
    void clear() override {}
    const fs::path& path() override { return path_; }
    FFSAddSourceFlags::ENUM flags() override { return flags_; }
    EFSSourceType::TYPE type() override { return EFSSourceType::SPECIAL; }
    /// As root_path: a file that lies nowhere on the disk has no native path.
    void full_path(fs::path& out, const fs::path& p) override { root_path(out, p); }
    /// `p` itself when it exists, else empty.
    void root_path(fs::path& out, const fs::path& p) override { out = exists(p) ? p : fs::path(); }
    std::int64_t write_time(const fs::path& /*p*/) override { return -1; }
    bool read_only(const fs::path& /*p*/) override { return true; }
    FS_NAME* get_file_list(const char* /*dir*/, const char* /*mask*/, bool /*recursive*/) override { return nullptr; }
    FS_NAME* search_substring(const char* /*text*/) override { return nullptr; }
    fs::dir* dir_tree() override { return nullptr; }

    void refresh_dir(const char* /*dir*/) override {}
    void refresh() override {}
    bool writable() override { return false; }
    bool is_protected() override { return false; }
    bool set_write_time(const fs::path& /*p*/, std::int64_t /*time*/) override { return false; }
    bool set_read_only(const fs::path& /*p*/, bool /*on*/) override { return false; }
    SFsFile* open_write(const fs::path& /*p*/, FFSOpenFlags::FLAGS /*flags*/) override { return nullptr; }
    SFsFile* open_append(const fs::path& /*p*/, FFSOpenFlags::FLAGS /*flags*/) override { return nullptr; }
    SFsFile* open_read_write(const fs::path& /*p*/, FFSOpenFlags::FLAGS /*flags*/) override { return nullptr; }
    SFsFile* create_write(const fs::path& /*p*/, FFSOpenFlags::FLAGS /*flags*/) override { return nullptr; }
    SFsFile* create_read_write(const fs::path& /*p*/, FFSOpenFlags::FLAGS /*flags*/) override { return nullptr; }
    bool mkdir(const fs::path& /*p*/) override { return false; }
    void rem_dir(const fs::path& /*p*/) override {}
    bool rem_file(const fs::path& /*p*/) override { return false; }

private:
    fs::path path_;
    FFSAddSourceFlags::ENUM flags_ = FFSAddSourceFlags::NONE;
};

}  // namespace fs
