// A pack source: a zip file whose directory is read once, when it is mounted, into a table that never changes
// (pack_table.h). Its bytes are reached through one store (pack_store.h), and an open file decodes its entry in blocks
// of 32 KiB (pack_blocks.h) or, when it is read whole, in one go (pack_whole.h).
//
// The invariant: whichever way the bytes of an entry are had, a caller sees what the block decoder would give, in
// results, positions and failures.

#include <engine/filesystem/sources/pack.h>

#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "engine/filesystem/contract/name_list.h"
#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/sources/pack/archive.h"

namespace {

std::string folded(std::string_view text) {
    std::string copy(text);
    fs::fold_text(copy.data(), copy.size());
    return copy;
}

std::optional<std::uint32_t> find(fs::PackArchive& archive, const fs::path& p) {
    if (p.IsLowercase()) return archive.table().find(p.PathNameView(), p.FileNameView());
    return archive.table().find(folded(p.PathNameView()), folded(p.FileNameView()));
}

/// What would not fit into a host's buffers of 260 bytes is not listed, though it can be opened.
bool fits_host_buffers(const fs::PackTable& table, std::uint32_t entry) {
    return table.dir(entry).size() + table.name(entry).size() < fs::path_capacity;
}

}  // namespace

CZip_dir::CZip_dir() = default;
CZip_dir::~CZip_dir() = default;

void CZip_dir::set_native_spelling(const char* native_path) { native_spelling_ = native_path ? native_path : ""; }

bool CZip_dir::init(const fs::path& root, FFSAddSourceFlags::ENUM flags, fs::dir_listing* /*listing*/) {
    clear();
    flags_ = flags;
    path_ = root;
    char full_name[fs::path_capacity];
    if (!root.FullName(full_name, sizeof full_name)) {
        fs::set_error(EFSError::INVALID_NAME, root.PathName(),
                      "The pack source refuses a path of more than 259 bytes.");
        return false;
    }
    if (std::string_view(full_name).find(".edat") != std::string_view::npos) {
        fs::set_error(EFSError::UNSUPPORTED, full_name,
                      "The pack source never serves a file with \".edat\" in its name.");
        return false;
    }
    const bool in_memory = (flags & FFSAddSourceFlags::PACK_IN_MEMORY) != 0;
    const char* native_path = native_spelling_.empty() ? full_name : native_spelling_.c_str();
    archive_ = fs::PackArchive::mount(native_path, in_memory);
    if (archive_ && tree_wanted_) archive_->fill_tree(tree_);
    return archive_ != nullptr;
}

void CZip_dir::clear() {
    archive_.reset();
    tree_.clear();
}

const fs::path& CZip_dir::path() { return path_; }
FFSAddSourceFlags::ENUM CZip_dir::flags() { return flags_; }
EFSSourceType::TYPE CZip_dir::type() { return EFSSourceType::PACK; }

/// Few ask for the tree, and for a pack with many directories it is a large part of mounting: so it is made for the first
/// who does, and from then on by init, since a caller may have kept it.
fs::dir* CZip_dir::dir_tree() {
    const std::lock_guard guard(tree_lock_);
    if (!tree_wanted_ && archive_) archive_->fill_tree(tree_);
    tree_wanted_ = true;
    return &tree_;
}

bool CZip_dir::exists(const fs::path& p) { return archive_ && find(*archive_, p); }

void CZip_dir::full_path(fs::path& out, const fs::path& p) { root_path(out, p); }

void CZip_dir::root_path(fs::path& out, const fs::path& p) {
    const auto entry = archive_ ? find(*archive_, p) : std::nullopt;
    if (!entry) return out.Release();
    const std::string name = std::string(archive_->table().dir(*entry)).append(archive_->table().name(*entry));
    out = fs::path(name.c_str(), true);
}

SFsFile* CZip_dir::open_read(const fs::path& p, FFSOpenFlags::FLAGS /*flags*/) {
    const auto entry = archive_ ? find(*archive_, p) : std::nullopt;
    if (!entry || !archive_->locate(*entry)) return nullptr;
    return new (std::nothrow) SZipFile(this, archive_, *entry);
}

FS_NAME* CZip_dir::get_file_list(const char* dir, const char* mask, bool flag) {
    if (!archive_) return nullptr;
    const std::string folded_dir = folded(dir ? dir : "");
    const std::string folded_mask = folded(mask ? mask : "");
    const fs::PackTable& table = archive_->table();
    fs::NameCollector names;
    for (std::uint32_t i = table.count(); i-- > 0;) {
        if (!fits_host_buffers(table, i)) continue;
        if (!fs::directory_answers(table.dir(i), dir ? folded_dir.c_str() : nullptr, flag)) continue;
        if (fs::name_matches(table.name(i), folded_mask.c_str())) names.append(table.dir(i), table.name(i));
    }
    return names.release();
}

FS_NAME* CZip_dir::search_substring(const char* text) {
    if (!archive_ || !text || *text == '\0') return nullptr;
    const std::string wanted = folded(text);
    const fs::PackTable& table = archive_->table();
    fs::NameCollector names;
    for (std::uint32_t i = table.count(); i-- > 0;) {
        if (!fits_host_buffers(table, i)) continue;
        const std::string_view dir = table.dir(i);
        if (dir.substr(0, dir.empty() ? 0 : dir.size() - 1).find(wanted) == std::string_view::npos) continue;
        names.append(dir, table.name(i));
    }
    return names.release();
}

// What a pack has none of: it is read-only, has no times, and is read once.

void CZip_dir::refresh_dir(const char* /*dir*/) {}
void CZip_dir::refresh() {}
bool CZip_dir::writable() { return false; }
std::int64_t CZip_dir::write_time(const fs::path& /*p*/) { return 0; }
bool CZip_dir::set_write_time(const fs::path& /*p*/, std::int64_t /*time*/) { return false; }
bool CZip_dir::is_protected() { return false; }
bool CZip_dir::read_only(const fs::path& /*p*/) { return true; }
bool CZip_dir::set_read_only(const fs::path& /*p*/, bool /*on*/) { return false; }
void CZip_dir::mark_installed_all(bool /*on*/) {}
void CZip_dir::mark_installed(const fs::path& /*p*/, bool /*on*/) {}
int CZip_dir::is_installed(const fs::path& /*p*/) { return 0; }
SFsFile* CZip_dir::open_write(const fs::path& /*p*/, FFSOpenFlags::FLAGS /*flags*/) { return nullptr; }
SFsFile* CZip_dir::open_append(const fs::path& /*p*/, FFSOpenFlags::FLAGS /*flags*/) { return nullptr; }
SFsFile* CZip_dir::open_read_write(const fs::path& /*p*/, FFSOpenFlags::FLAGS /*flags*/) { return nullptr; }
SFsFile* CZip_dir::create_write(const fs::path& /*p*/, FFSOpenFlags::FLAGS /*flags*/) { return nullptr; }
SFsFile* CZip_dir::create_read_write(const fs::path& /*p*/, FFSOpenFlags::FLAGS /*flags*/) { return nullptr; }
bool CZip_dir::mkdir(const fs::path& /*p*/) { return false; }
void CZip_dir::rem_dir(const fs::path& /*p*/) {}
bool CZip_dir::rem_file(const fs::path& /*p*/) { return false; }
void CZip_dir::dump(ztl::vector<fs::string>& /*lines*/, const char* /*ext*/) {}
