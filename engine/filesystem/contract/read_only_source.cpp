#include <engine/filesystem/contract/read_only_source.h>

namespace fs {

bool ReadOnlySource::init(const fs::path& root, FFSAddSourceFlags::ENUM flags, fs::dir_listing* /*listing*/) {
    path_ = root;
    flags_ = flags;
    return true;
}

void ReadOnlySource::full_path(fs::path& out, const fs::path& p) { root_path(out, p); }

void ReadOnlySource::root_path(fs::path& out, const fs::path& p) {
    if (exists(p)) {
        out = p;
    } else {
        out.Release();
    }
}

std::int64_t ReadOnlySource::write_time(const fs::path& /*p*/) { return -1; }
bool ReadOnlySource::read_only(const fs::path& /*p*/) { return true; }
FS_NAME* ReadOnlySource::get_file_list(const char* /*dir*/, const char* /*mask*/, bool /*flag*/) { return nullptr; }
FS_NAME* ReadOnlySource::search_substring(const char* /*text*/) { return nullptr; }
fs::dir* ReadOnlySource::dir_tree() { return nullptr; }

bool ReadOnlySource::set_write_time(const fs::path& /*p*/, std::int64_t /*time*/) { return false; }
bool ReadOnlySource::set_read_only(const fs::path& /*p*/, bool /*on*/) { return false; }
SFsFile* ReadOnlySource::open_write(const fs::path& /*p*/, FFSOpenFlags::FLAGS /*flags*/) { return nullptr; }
SFsFile* ReadOnlySource::open_append(const fs::path& /*p*/, FFSOpenFlags::FLAGS /*flags*/) { return nullptr; }
SFsFile* ReadOnlySource::open_read_write(const fs::path& /*p*/, FFSOpenFlags::FLAGS /*flags*/) { return nullptr; }
SFsFile* ReadOnlySource::create_write(const fs::path& /*p*/, FFSOpenFlags::FLAGS /*flags*/) { return nullptr; }
SFsFile* ReadOnlySource::create_read_write(const fs::path& /*p*/, FFSOpenFlags::FLAGS /*flags*/) { return nullptr; }
bool ReadOnlySource::mkdir(const fs::path& /*p*/) { return false; }
void ReadOnlySource::rem_dir(const fs::path& /*p*/) {}
bool ReadOnlySource::rem_file(const fs::path& /*p*/) { return false; }

}  // namespace fs
