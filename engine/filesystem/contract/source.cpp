// What sources inherit.
#include <engine/filesystem/contract/source.h>

#include <atomic>

#include <engine/filesystem/contract/followed_source.h>
#include <engine/filesystem/contract/read_only_source.h>

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

FollowedSource::FollowedSource() {
    static std::atomic<std::uint64_t> latest{0};
    serial_ = latest.fetch_add(1, std::memory_order_relaxed) + 1;
}

}  // namespace fs
