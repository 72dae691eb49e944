#include <engine/filesystem/access/manage.h>

#include <engine/filesystem/contract/native_source.h>

#include "engine/filesystem/access/parts.h"
#include "engine/platform/files.h"

// What changes names: directories made, files and directories removed, files renamed. Each finds its source in asking
// order, by names taken whole, and changes it under the exclusive lock, since tables and the index follow. An empty path
// and one that climbs above its source name nothing that may be changed.
//
// The cache directory is a place on the disk that need not lie below any source, so its directories are made and asked
// for there.

namespace fs {

namespace {

/// False, with the failure stored, for a path that may not be changed.
bool may_change(const NormalText& name, const char* path) {
    if (name.names_nothing()) return refuse(EFSError::INVALID_NAME, path, "An empty path names nothing to change.");
    if (climbs(name.view())) return refuse(EFSError::INVALID_NAME, path, "The path climbs above its source.");
    return true;
}

/// Whether the source has this directory: in its tree, or on the disk where it stands on one. `inner` becomes the name
/// that the source knows it by.
bool has_directory(CFSSource& source, const fs::path& directory, fs::path& inner) {
    inner = directory;
    if (registry::is_fallback(&source)) return is_native_directory(directory.PathName());
    if (is_native_directory_name(directory.PathNameView())) {
        const auto below = registry::below_root(source, directory.PathNameView());
        if (!below || below->empty()) return false;
        inner = directory_name(*below, true);
    }
    if (registry::find_directory(source, inner.PathName()) != nullptr) return true;
    return source.root_dir()[0] != '\0' &&
           is_native_directory((std::string(source.root_dir()) + inner.PathName()).c_str());
}

bool move_content(CFSSource& source, const fs::path& from, const fs::path& to, const char* path) {
    const FilePtr old_file(source.open_read(from, FFSOpenFlags::WHOLE_NAME));
    return old_file && copy_content(*old_file, 0, path, [&] { return source.create_write(to, FFSOpenFlags::NONE); });
}

/// For a source that has no renaming of its own: the content is copied, then the old name goes.
bool rename_by_copy(CFSSource& source, const fs::path& from, const fs::path& to, const char* path) {
    const fs::path lower_to = lower_case(to);
    if (lower_to == from) return true;  // names are compared in lower case: nothing changes
    const ErrorScope scope;
    if (move_content(source, from, to, path) && source.rem_file(from)) return true;
    if (registry::holds_whole(source, lower_to)) source.rem_file(lower_to);
    return fail_unless_told(scope, EFSError::IO, path, "The source could not move the file to its new name.");
}

/// Makes of a full path the name that the source knows it by. False for one that leads out of the source.
bool keep_within(CFSSource& source, fs::path& name) {
    if (!is_native_directory_name(name.PathNameView())) return true;
    if (registry::is_fallback(&source)) return registry::Concerned(name).is_outside();
    const auto below = registry::below_root(source, name.PathNameView());
    if (below) name = path_of(*below, name.FileName(), name.IsLowercase());
    return below.has_value();
}

bool rename_held(fs::path from, fs::path to, const char* path) {
    CFSSource* const holder = registry::first_holder(from, Match::WHOLE);
    if (holder == nullptr) return refuse(EFSError::NOT_FOUND, path, "No source holds a file of this name.");
    if (!holder->writable()) {
        return refuse(EFSError::READ_ONLY, path, "The source that holds the file cannot be written.");
    }
    keep_within(*holder, from);
    if (!keep_within(*holder, to)) return refuse(EFSError::INVALID_NAME, path, "A file is renamed within its source.");
    const fs::path lower_to = lower_case(to);
    if (!(lower_to == from) && registry::first_holder(lower_to, Match::WHOLE) != nullptr) {
        return refuse(EFSError::ALREADY_EXISTS, path, "A source holds a file of the new name already.");
    }
    fs::dir directory;
    registry::prepare_directory(lower_to, directory);
    auto* const native = dynamic_cast<NativeSource*>(holder);
    const bool renamed = native != nullptr ? native->rename_file(from, to) : rename_by_copy(*holder, from, to, path);
    if (renamed && !registry::is_fallback(holder)) registry::state().index.take_over(directory);
    return renamed;
}

/// Makes a directory of the disk, `native`, which ends in "/", with those above it. False, with the failure stored, when
/// that cannot be done.
bool make_native_directory(std::string native, const char* path) {
    if (!create_directories(native)) return false;
    native.pop_back();
    return is_native_directory(native.c_str()) ||
           refuse(EFSError::ALREADY_EXISTS, path, "What bears this name is no directory.");
}

bool make_directory(fs::path directory, const char* path) {
    const fs::path asked = lower_case(directory);
    CFSSource* const creator = creator_of(registry::Concerned(asked), directory);
    if (!may_create(creator, path)) return false;
    if (registry::is_fallback(creator)) {
        if (is_creatable(directory.PathNameView())) return make_native_directory(directory.PathName(), path);
        return refuse(EFSError::INVALID_NAME, path, "A directory needs a name that every system can hold.");
    }
    const ErrorScope scope;
    return creator->mkdir(directory) ||
           fail_unless_told(scope, EFSError::ACCESS_DENIED, path, "The source did not make the directory.");
}

/// The full path of a directory below the cache directory, with its "/"; "", with the failure stored, where there is none.
std::string cache_path_of(const char* path) {
    const std::string_view cache = registry::state().cache_dir;
    const NormalText inner(path, true);
    const NormalText whole(with_cache_directory(inner.c_str(), FFSOpenFlags::IN_CACHE_DIR).c_str(), true);
    std::string full(whole.view());
    if (!full.ends_with('/')) full += '/';
    const char* const why = climbs(inner.view())            ? "The path climbs above the cache directory."
                            : cache.empty() || cache == "/" ? "There is no cache directory."
                            : full.size() > path_capacity   ? "The path of the directory is longer than 259 bytes."
                                                            : nullptr;
    if (why == nullptr) return full;
    set_error(EFSError::INVALID_NAME, path, why);
    return {};
}

}  // namespace

std::string with_cache_directory(const char* path, FFSOpenFlags::FLAGS flags) {
    std::string whole((flags & FFSOpenFlags::IN_CACHE_DIR) != 0 ? registry::state().cache_dir : "");
    return whole.append(path != nullptr ? path : "");
}

CFSSource* creator_of(const registry::Concerned& concerned, fs::path& name) {
    if (concerned.is_outside()) return registry::state().fallback.get();
    CFSSource* const home = concerned.home();
    if (home == nullptr) return registry::creator(name.PathNameView());
    name = path_of(*registry::below_root(*home, name.PathNameView()), name.FileName(), name.IsLowercase());
    return home;
}

bool may_create(CFSSource* creator, const char* path) {
    if (creator == nullptr && registry::state().empty()) {
        return refuse(EFSError::NOT_INITIALIZED, path, "No source is registered.");
    }
    if (creator == nullptr) {
        return refuse(EFSError::ACCESS_DENIED, path,
                      "The path lies in no mounted directory, and there is no fallback that would reach it.");
    }
    if (creator->writable()) return true;
    return refuse(EFSError::READ_ONLY, path, "The source that would make this cannot be written.");
}

bool mkdir(const char* path) {
    return guarded(path, false, [&] {
        NormalText name(path, false);
        if (!may_change(name, path)) return false;
        const ExclusiveGuard guard;
        fs::dir& index = registry::state().index;
        const bool is_indexed = name.view() == index.name() || index.find(name.c_str()) != nullptr;
        if (is_indexed && !is_native_directory_name(name.view())) return true;
        return make_directory(directory_name(NormalText(path, true).view(), false), path);
    });
}

bool rename(const char* from, const char* to) {
    return guarded(from, false, [&] {
        if (!may_change(NormalText(from, false), from) || !may_change(NormalText(to, false), to)) return false;
        const fs::path old_name = lookup_name(from);
        const fs::path new_name = creation_name(to);
        if (old_name.EmptyFile() || !is_creatable_name(new_name)) {
            return refuse(EFSError::INVALID_NAME, to, "A file cannot bear this name.");
        }
        const ExclusiveGuard guard;
        return rename_held(old_name, new_name, from);
    });
}

bool rem_file(const char* path, FFSOpenFlags::FLAGS flags) {
    return guarded(path, false, [&] {
        if (!may_change(NormalText(path, false), path)) return false;  // nor may it climb out of the cache directory
        const std::string whole = with_cache_directory(path, flags);
        return change_held<ExclusiveGuard>(
            whole.c_str(), "The source did not remove the file.", [&](CFSSource& source, const fs::path& name) {
                if (source.writable()) return source.rem_file(name);
                return refuse(EFSError::READ_ONLY, path, "The source that holds the file cannot be written.");
            });
    });
}

void rem_dir(const char* path) {
    guarded(path, [&] {
        const NormalText name(path, false);
        if (!may_change(name, path)) return;
        const fs::path directory = directory_name(name.view(), true);
        const ExclusiveGuard guard;
        fs::path inner;
        CFSSource* const holder = registry::first_concerned(
            directory, [&](CFSSource& source) { return source.writable() && has_directory(source, directory, inner); });
        if (holder == nullptr) {
            set_error(EFSError::NOT_FOUND, path, "No writable source has this directory.");
            return;
        }
        const std::vector<std::string> indexed = registry::indexed_directories(inner.PathNameView());
        holder->rem_dir(inner);
        registry::forget_directories(indexed);
    });
}

fs::string getOutLocationDebugHelper(const char* path) {
    return guarded(path, fs::string(), [&]() -> fs::string {
        fs::path name = creation_name(path);
        if (name.Empty()) return {};
        const fs::path lower = lower_case(name);
        const SharedGuard guard;
        const registry::Concerned concerned(lower);
        CFSSource* target = registry::first_source(
            [&](CFSSource& source) { return concerned(source) && source.writable() && source.exists(lower); });
        if (target == nullptr) target = creator_of(concerned, name);
        auto* const on_disk = dynamic_cast<NativeSource*>(target);
        char native[platform::path_buffer_size] = "";
        if (on_disk == nullptr || !target->writable() || !on_disk->native_path(name, native, sizeof(native))) return {};
        return native;
    });
}

bool mkdir_cache(const char* path) {
    return guarded(path, false, [&] {
        if (!is_creatable(NormalText(path, true).view())) {
            return refuse(EFSError::INVALID_NAME, path, "A directory needs a name that every system can hold.");
        }
        const std::string whole = cache_path_of(path);
        return !whole.empty() && make_native_directory(whole, path);
    });
}

bool does_cache_dir_exist(const char* path) {
    return guarded(path, false, [&] {
        std::string whole = cache_path_of(path);
        if (whole.empty()) return false;
        whole.pop_back();
        return is_native_directory(whole.c_str());
    });
}

}  // namespace fs
