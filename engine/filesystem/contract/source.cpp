#include <engine/filesystem/contract/source.h>

#include <atomic>

#include <engine/filesystem/contract/followed_source.h>
#include <engine/filesystem/contract/read_only_source.h>

// What sources inherit.

CFSSource::CFSSource() = default;
CFSSource::~CFSSource() = default;

void CFSSource::mark_installed_all(bool) {}
void CFSSource::mark_installed(const fs::path&, bool) {}
int CFSSource::is_installed(const fs::path&) { return 0; }
void CFSSource::dump(ztl::vector<fs::string>&, const char*) {}
const char* CFSSource::root_dir() { return ""; }

namespace fs {

bool ReadOnlySource::init(const fs::path& root, FFSAddSourceFlags::ENUM flags, fs::dir_listing* /*listing*/) {
    path_ = root;
    flags_ = flags;
    return root.Empty() || !path_.Empty();  // false: there was no memory for it
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

FollowedSource::FollowedSource() {
    static std::atomic<std::uint64_t> latest{0};
    serial_ = latest.fetch_add(1, std::memory_order_relaxed) + 1;
}

}  // namespace fs
