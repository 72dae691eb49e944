#include <engine/filesystem/sources/fallback.h>

#include <algorithm>
#include <optional>
#include <typeinfo>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/open_file.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/sources/paths.h"
#include "engine/platform/directories.h"
#include "engine/platform/process.h"

// The last source: what no other source holds is asked of the disk itself, under the path as it is given. It keeps nothing
// between calls, so it is never stale and never knows a listing.

namespace {

using fs::NativePath;
using Flags = FFSOpenFlags::FLAGS;

// Directory and name of a request. False when they are empty or do not fit.
bool full_name(const fs::path& p, NativePath& out) {
    return out.append(p.PathNameView()) && out.append(p.FileNameView()) && out.length != 0;
}

// The same, with a refusal noted.
bool name_or_refuse(const fs::path& p, NativePath& out) {
    return full_name(p, out) ||
           fs::refuse(EFSError::INVALID_NAME, p.FileName(), "The native path is empty or too long.");
}

std::optional<platform::Attributes> attributes_of(const fs::path& p) {
    NativePath path;
    return full_name(p, path) ? platform::get_attributes(path.text) : std::nullopt;
}

}  // namespace

CWin32_fallback::CWin32_fallback() = default;
CWin32_fallback::~CWin32_fallback() = default;

bool CWin32_fallback::init(const fs::path&, FFSAddSourceFlags::ENUM flags, fs::dir_listing*) {
    return ReadOnlySource::init(fs::path(), flags, nullptr);
}

bool CWin32_fallback::writable() { return true; }

bool CWin32_fallback::exists(const fs::path& p) { return attributes_of(p).has_value(); }
bool CWin32_fallback::exists_whole(const fs::path& p) { return exists(p); }
void CWin32_fallback::root_path(fs::path& out, const fs::path& p) { out = p; }

std::int64_t CWin32_fallback::write_time(const fs::path& p) {
    const auto attributes = attributes_of(p);
    return attributes ? attributes->write_time : -1;
}

bool CWin32_fallback::set_write_time(const fs::path& p, std::int64_t time) {
    NativePath path;
    if (!name_or_refuse(p, path)) return false;
    // The answer does not depend on the disk: a file that cannot be opened keeps its times, and this is true all the same.
    if (!platform::set_all_times(path.text, time)) fs::refuse_by_disk(path.text, "keeps its times");
    return true;
}

bool CWin32_fallback::read_only(const fs::path& p) {
    const auto attributes = attributes_of(p);
    return attributes && attributes->is_read_only;
}

bool CWin32_fallback::set_read_only(const fs::path& p, bool on) {
    NativePath path;
    if (!name_or_refuse(p, path)) return false;
    return platform::set_read_only(path.text, on) || fs::refuse_by_disk(path.text, "keeps its read-only attribute");
}

SFsFile* CWin32_fallback::open(const fs::path& p, EFSMode::TYPE mode, Flags flags) {
    NativePath name;
    NativePath path;
    if (!full_name(p, name)) return nullptr;
    const bool is_gzip = mode == EFSMode::READ && fs::has_any(flags, FFSOpenFlags::GZIP);
    const bool is_beside = is_gzip && !fs::is_full_path(name.text);
    if (path.append(is_beside ? platform::executable_directory() : "") && path.append(name.view()))
        return fs::open_of_source(this, {.full = path.text}, mode, flags, path.view());
    fs::refuse(EFSError::INVALID_NAME, name.text, "The native path is too long.");
    return nullptr;
}

SFsFile* CWin32_fallback::open_read(const fs::path& p, Flags flags) { return open(p, EFSMode::READ, flags); }
SFsFile* CWin32_fallback::open_write(const fs::path& p, Flags flags) { return open(p, EFSMode::WRITE, flags); }
SFsFile* CWin32_fallback::open_append(const fs::path& p, Flags flags) { return open(p, EFSMode::APPEND, flags); }
SFsFile* CWin32_fallback::open_read_write(const fs::path& p, Flags flags) {
    return open(p, EFSMode::READ_WRITE, flags);
}

// The name as it is asked for is all that an open needs. A derived class may open in its own way, which is made for the lock.
fs::LocatingSource::Answer CWin32_fallback::locate(const fs::path&, Flags, Located&) {
    return typeid(*this) == typeid(CWin32_fallback) ? Answer::LOCATED : Answer::OPEN_READ;
}
SFsFile* CWin32_fallback::open_located(const fs::path& p, Flags flags, const Located&) { return open_read(p, flags); }

void CWin32_fallback::rem_dir(const fs::path& p) {
    const std::string_view dir = p.PathNameView();
    NativePath path;
    if (dir.size() <= fs::fixed_prefix_length(dir) || fs::climbs(dir) || !path.append(dir)) {
        fs::refuse(EFSError::INVALID_NAME, p.PathName(),
                   "The directory to remove is a root, leads out of the current one, or is too long.");
        return;
    }
    fs::guarded(path.text, [&] {
        // What failed below is why this directory cannot go, so it is what stays told.
        const fs::ErrorScope scope;
        path.cut(path.length - 1);
        if (!platform::is_link(path.text) && !remove_items(dir)) return;
        if (!platform::remove_directory(path.text) && !scope.has_error())
            fs::refuse_by_disk(path.text, "cannot be removed");
    });
}

// False when the directory cannot be listed: then it stays. After the first failure no other is stored.
bool CWin32_fallback::remove_items(std::string_view dir) {
    const fs::ErrorScope scope;
    std::optional<fs::ErrorKeeper> told;
    NativePath path;
    platform::DirectoryListing items;
    if (!path.append(dir) || !platform::list_directory({.full = path.text}, items, platform::Links::ALL))
        return fs::refuse_by_disk(path.text, "cannot be listed");
    for (const platform::DirectoryItem& item : items.items()) {
        if (item.is_offline || item.name[0] == '#') continue;
        if (scope.has_error() && !told) told.emplace();
        path.cut(dir.size());
        if (!path.append({item.name, item.length})) {
            fs::refuse(EFSError::INVALID_NAME, path.text, "The directory holds a name that is too long to be removed.");
        } else if (item.is_directory && !item.is_link) {
            rem_dir(fs::directory_name(path.view(), false));  // as the disk spells it
        } else if (!platform::remove_file(path.text) && !(item.is_directory && platform::remove_directory(path.text))) {
            fs::refuse_by_disk(path.text, "cannot be removed");
        }
    }
    return true;
}

bool CWin32_fallback::rem_file(const fs::path& p) {
    NativePath path;
    if (!name_or_refuse(p, path)) return false;
    if (fs::climbs(path.view()))
        return fs::refuse(EFSError::INVALID_NAME, path.text, "The path leads out of the current directory.");
    return platform::remove_file(path.text) || fs::refuse_by_disk(path.text, "cannot be deleted");
}

bool CWin32_fallback::rename_file(const fs::path& from, const fs::path& to) {
    NativePath old_path;
    NativePath new_path;
    if (!name_or_refuse(from, old_path) || !name_or_refuse(to, new_path)) return false;
    return fs::guarded(old_path.text, false, [&] {
        if (fs::climbs(old_path.view()) || to.EmptyFile() || !fs::is_creatable(new_path.view()))
            return fs::refuse(
                EFSError::INVALID_NAME, new_path.text,
                "The new name leads out of the current directory or is one that not every system can hold.");
        if (!fs::prepare_rename(old_path.view(), new_path.text)) return false;
        return platform::rename_path(old_path.text, new_path.text) ||
               fs::refuse_by_disk(old_path.text, "cannot be renamed");
    });
}

bool CWin32_fallback::native_path(const fs::path& p, char* out, std::size_t capacity) {
    return p.FullName(out, std::min(capacity, platform::path_buffer_size)) && *out != '\0';
}
