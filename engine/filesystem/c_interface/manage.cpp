#include <optional>
#include <string>

#include <engine/filesystem/access/manage.h>
#include <engine/filesystem/contract/locating_source.h>
#include <engine/filesystem/contract/native_source.h>

#include "engine/filesystem/access/parts.h"
#include "engine/filesystem/c_interface/call.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/platform/clock.h"
#include "engine/platform/files.h"

namespace {

using namespace fs::c;
using fs::registry::Match;
using fs::registry::SharedGuard;

constexpr std::uint32_t asking_flags = FFSOpenFlags::WHOLE_NAME | FFSOpenFlags::IN_CACHE_DIR;

/// Where the disk holds the file that this source opens for the name; "" when that is not known.
std::string native_place(CFSSource& source, const fs::path& name, FFSOpenFlags::FLAGS flags) {
    fs::LocatingSource::Located found;
    found.path[0] = '\0';
    auto* const locating = dynamic_cast<fs::LocatingSource*>(&source);
    if (!locating || locating->locate(name, flags, found) != fs::LocatingSource::Answer::LOCATED) return "";
    auto* const native = dynamic_cast<fs::NativeSource*>(&source);
    const bool is_known = found.path[0] != '\0' || (native && native->native_path(name, found.path, sizeof found.path));
    return is_known ? found.path : "";
}

/// Files of the disk are asked for their attributes when the lock is given back; `native` names them.
bool describe(CFSSource& source, const fs::path& name, FFSOpenFlags::FLAGS flags, enginefs_info& info,
              std::string& native) {
    info.kind = source.type();
    info.is_protected = source.is_protected();
    native = native_place(source, name, flags);
    if (!native.empty()) return true;
    const fs::FilePtr file(source.open_read(name, flags));
    if (!file) return false;
    info.size = static_cast<int64_t>(file->length());
    info.time = source.write_time(name);
    info.is_read_only = source.read_only(name);
    return true;
}

bool describe_native(const char* native, enginefs_info& info) {
    const auto attributes = platform::get_attributes(native);
    if (!attributes) return fs::refuse_by_disk(native, "has no readable attributes");
    info.size = static_cast<int64_t>(attributes->size);
    info.time = attributes->write_time;
    info.is_read_only = attributes->is_read_only;
    return true;
}

bool describe_file(const char* path, FFSOpenFlags::FLAGS flags, enginefs_info& info) {
    std::string native;
    info.type = ENGINEFS_TYPE_FILE;
    const auto use = [&](CFSSource& source, const fs::path& held) {
        return describe(source, held, flags & FFSOpenFlags::WHOLE_NAME, info, native);
    };
    if (!fs::with_holder<SharedGuard>(path, fs::match_of(flags), false, use)) return false;
    return native.empty() || describe_native(native.c_str(), info);
}

bool has_directory(CFSSource& source, const fs::path& directory) {
    std::optional<std::string_view> name = directory.PathNameView();
    if (fs::is_native_directory_name(*name)) name = fs::registry::below_root(source, *name);
    return name && fs::registry::find_directory(source, std::string(*name).c_str()) != nullptr;
}

bool describe_directory(const char* path, enginefs_info& info) {
    const fs::path directory = fs::directory_name(fs::NormalText(path, false).view(), true);
    info = {};
    info.type = ENGINEFS_TYPE_DIRECTORY;
    info.size = info.time = -1;
    const SharedGuard guard;
    return fs::registry::first_source([&](CFSSource& source) { return has_directory(source, directory); }) != nullptr;
}

bool describe_any(const char* path, FFSOpenFlags::FLAGS flags, enginefs_info& info) {
    fs::ErrorScope scope;
    const std::string name = fs::with_cache_directory(path, flags);
    if (describe_file(name.c_str(), flags, info)) return true;
    if (!describe_directory(name.c_str(), info)) return false;
    scope.forget();
    return true;
}

/// Directory sources speak of local time, this interface of universal time alone.
bool set_time(CFSSource& source, const fs::path& name, const char* path, int64_t time) {
    const bool is_local = !fs::registry::is_fallback(&source) && dynamic_cast<fs::NativeSource*>(&source) != nullptr;
    const fs::ErrorScope scope;
    if (!source.set_write_time(name, is_local ? platform::utc_to_local(time) : time))
        return fs::fail_unless_told(scope, EFSError::READ_ONLY, path,
                                    "The source that holds the file cannot be written.");
    return !scope.has_error();
}

/// What `work(name)` does with a file or directory of the disk.
template <typename Work>
int change(const char* path, uint32_t flags, Work work) noexcept {
    return status(path, [&] {
        return is_name(path, flags) && work(fs::with_cache_directory(path, as_open_flags(flags)).c_str());
    });
}

/// The same with a second name, that of a file to be made.
template <typename Work>
int change_two(const char* from, const char* to, uint32_t flags, Work work) noexcept {
    return change(from, flags, [&](const char* name) {
        return is_new_name(to) && work(name, fs::with_cache_directory(to, as_open_flags(flags)).c_str());
    });
}

}  // namespace

int enginefs_exists(const char* path, uint32_t flags) {
    return is_name(path, flags) && fs::exists(path, as_open_flags(flags));
}

int enginefs_stat(const char* path, uint32_t flags, enginefs_info* out) {
    return status(path, [&] {
        enginefs_info info{};
        return is_name(path, flags) && is_struct(out) &&
               describe_any(path, as_open_flags(flags & asking_flags), info) && put(out, info);
    });
}

int enginefs_set_time(const char* path, int64_t time, uint32_t flags) {
    return change(path, flags, [&](const char* file) {
        return fs::with_holder<SharedGuard>(file, Match::WHOLE, false, [&](CFSSource& source, const fs::path& name) {
            return set_time(source, name, file, time);
        });
    });
}

int enginefs_remove(const char* path, uint32_t flags) {
    return change(path, flags, [](const char* name) { return fs::rem_file(name); });
}

int enginefs_remove_dir(const char* path, uint32_t flags) {
    return change(path, flags, [](const char* name) { return is_quiet([&] { fs::rem_dir(name); }); });
}

int enginefs_mkdir(const char* path, uint32_t flags) {
    return change(path, flags, [&](const char* name) {
        if (!is_new_name(path)) return false;
        // What makes directories takes a file of the name for one that is there already.
        if (fs::exists(name, FFSOpenFlags::WHOLE_NAME))
            return fs::refuse(EFSError::ALREADY_EXISTS, path, "A file of this name is there.");
        return fs::mkdir(name);
    });
}

int enginefs_rename(const char* from, const char* to, uint32_t flags) {
    return change_two(from, to, flags, fs::rename);
}

int enginefs_copy(const char* from, const char* to, uint32_t flags) {
    return change_two(from, to, flags, [](const char* old, const char* made) { return fs::copy(old, made, 0); });
}
