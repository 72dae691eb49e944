#include <engine/filesystem/access/manage.h>

#include <cstring>

#include <engine/filesystem/contract/native_source.h>
#include "engine/filesystem/access/parts.h"
#include "engine/filesystem/contract/path.h"
#include "engine/platform/files.h"

// What changes names: directories made, files and directories removed, files renamed. Each finds its source in asking
// order, by names taken whole, and changes it under the exclusive lock, since tables and the index follow. An empty path
// and one that climbs above its source name nothing that may be changed.

namespace fs {

namespace {

using registry::ExclusiveGuard;
using registry::Match;

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

/// `to` as the source knows it. False, with the failure stored, for a place outside of the source.
bool keep_within(CFSSource& source, fs::path& to, const char* path) {
    if (registry::is_fallback(&source) || !is_native_directory_name(to.PathNameView())) return true;
    const auto below = registry::below_root(source, to.PathNameView());
    if (!below) return refuse(EFSError::INVALID_NAME, path, "A file is renamed within its source.");
    to = path_of(*below, to.FileName(), false);
    return true;
}

bool rename_held(const fs::path& from, fs::path to, const char* path) {
    CFSSource* const holder = registry::first_holder(from, Match::WHOLE);
    if (holder == nullptr) return refuse(EFSError::NOT_FOUND, path, "No source holds a file of this name.");
    if (!holder->writable()) {
        return refuse(EFSError::READ_ONLY, path, "The source that holds the file cannot be written.");
    }
    if (!keep_within(*holder, to, path)) return false;
    const fs::path lower_to = lower_case(to);
    if (!(lower_to == from) && registry::first_holder(lower_to, Match::WHOLE) != nullptr) {
        return refuse(EFSError::ALREADY_EXISTS, path, "A source holds a file of the new name already.");
    }
    fs::dir directory;
    if (directory.add_path(lower_to.PathName()) == nullptr) throw std::bad_alloc();
    auto* const native = dynamic_cast<NativeSource*>(holder);
    const bool renamed = native != nullptr ? native->rename_file(from, to) : rename_by_copy(*holder, from, to, path);
    if (renamed && !registry::is_fallback(holder)) registry::state().index.take_over(directory);
    return renamed;
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

}  // namespace

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
        return with_holder<ExclusiveGuard>(
            with_cache_directory(path, flags).c_str(), Match::WHOLE, false,
            [&](CFSSource& source, const fs::path& name) {
                if (!source.writable()) {
                    return refuse(EFSError::READ_ONLY, path, "The source that holds the file cannot be written.");
                }
                const ErrorScope scope;
                return source.rem_file(name) ||
                       fail_unless_told(scope, EFSError::ACCESS_DENIED, path, "The source did not remove the file.");
            });
    });
}

void rem_dir(const char* path) {
    guarded(path, [&] {
        const NormalText name(path, false);
        if (!may_change(name, path)) return;
        const fs::path directory = directory_name(name.view(), true);
        const ExclusiveGuard guard;
        const registry::Concerned concerned(directory);
        fs::path inner;
        CFSSource* const holder = registry::first_source([&](CFSSource& source) {
            return source.writable() && concerned(source) && has_directory(source, directory, inner);
        });
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
        const registry::SharedGuard guard;
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

}  // namespace fs
