#include <engine/filesystem/access/manage.h>

#include <cstring>

#include <engine/filesystem/access/open.h>

#include <engine/filesystem/contract/native_source.h>
#include "engine/filesystem/access/cache_path.h"
#include "engine/filesystem/access/file_copy.h"
#include "engine/filesystem/access/holder.h"
#include "engine/filesystem/access/whole_file_parts.h"
#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/platform/files.h"

// What changes names: directories made, files and directories removed, files renamed. Each finds its source in asking
// order and changes it under the exclusive lock, since tables and the index follow. An empty path and one that climbs
// above its source name nothing that may be changed.

namespace fs {

namespace {

/// False, with the failure stored, for a path that may not be changed.
bool may_change(const NormalText& name, const char* path) {
    if (name.names_nothing()) return refuse(EFSError::INVALID_NAME, path, "An empty path names nothing to change.");
    if (name.climbs()) return refuse(EFSError::INVALID_NAME, path, "The path climbs above its source.");
    return true;
}

bool is_creatable(const fs::path& name) {
    if (name.EmptyFile()) return false;
    return platform::is_valid_name(name.FileName(), name.FileNameView().size());
}

fs::path directory_path(const NormalText& directory, bool lower) {
    fs::path out;
    out.Set(directory.c_str(), nullptr, lower);
    return out;
}

/// What is left of `directory` below the source's native root; a path that is not full is below it as it stands.
fs::path below_root(CFSSource& source, const fs::path& directory) {
    const std::string_view root = source.root_dir();
    const std::string_view path = directory.PathNameView();
    if (root.empty() || !is_full_path(directory.PathName()) || path.size() <= root.size()) return directory;
    for (std::size_t i = 0; i < root.size(); ++i) {
        if (fold(root[i]) != fold(path[i])) return directory;
    }
    fs::path out;
    out.Set(directory.PathName() + root.size(), nullptr, directory.IsLowercase());
    return out;
}

bool is_native_directory(const char* root, const fs::path& directory) {
    char native[platform::path_buffer_size];
    const std::string_view lead(root);
    if (lead.size() >= sizeof(native)) return false;
    std::memcpy(native, lead.data(), lead.size());
    if (!directory.FullName(native + lead.size(), sizeof(native) - lead.size())) return false;
    const auto attributes = platform::get_attributes(native);
    return attributes && attributes->is_directory;
}

/// Whether the source has this directory: in its tree, or on the disk where it stands on one.
bool has_directory(const registry::State& state, CFSSource& source, const fs::path& directory) {
    if (registry::find_directory(source, directory.PathName()) != nullptr) return true;
    if (state.end_marker != nullptr && state.end_marker->source == &source) return is_native_directory("", directory);
    if (source.root_dir()[0] == '\0' || is_full_path(directory.PathName())) return false;
    return is_native_directory(source.root_dir(), directory);
}

bool move_content(CFSSource& source, const fs::path& from, const fs::path& to, const char* path) {
    const FilePtr old_file(source.open_read(from, FFSOpenFlags::NONE));
    if (!old_file) return false;
    const FilePtr new_file(source.create_write(to, FFSOpenFlags::NONE));
    return new_file && copy_content(*old_file, *new_file, 0, path);
}

/// For a source that has no renaming of its own: the content is copied, then the old name goes.
bool rename_by_copy(CFSSource& source, const fs::path& from, const fs::path& to, const char* path) {
    fs::path lower_to = to;
    lower_to.Lowercase();
    if (lower_to == from) return true;  // names are compared in lower case: nothing changes
    const ErrorScope scope;
    if (move_content(source, from, to, path)) return source.rem_file(from);
    if (source.exists(lower_to)) source.rem_file(lower_to);
    if (!scope.has_error()) set_error(EFSError::IO, path, "The source could not write the file under its new name.");
    return false;
}

/// Whether the source holds a file of just this name. One that is found by the end of a longer name is in nobody's way.
bool holds_itself(CFSSource& source, const fs::path& name) {
    if (!source.exists(name)) return false;
    fs::path found;
    source.root_path(found, name);
    return found.Empty() || found == name || is_full_path(name.PathName());
}

bool rename_held(registry::State& state, const fs::path& from, const fs::path& to, const char* path) {
    fs::path lower_to = to;
    lower_to.Lowercase();
    const auto is_taken = [&](CFSSource& source) { return holds_itself(source, lower_to); };
    CFSSource* const holder = registry::first_source(state, [&](CFSSource& source) { return source.exists(from); });
    if (holder == nullptr) return refuse(EFSError::NOT_FOUND, path, "No source holds a file of this name.");
    if (!holder->writable())
        return refuse(EFSError::READ_ONLY, path, "The source that holds the file cannot be written.");
    if (!(lower_to == from) && registry::first_source(state, is_taken) != nullptr) {
        return refuse(EFSError::ALREADY_EXISTS, path, "A source holds a file of the new name already.");
    }
    auto* const native = dynamic_cast<NativeSource*>(holder);
    const bool renamed = native != nullptr ? native->rename_file(from, to) : rename_by_copy(*holder, from, to, path);
    if (renamed) state.index.add_path(lower_to.PathName());
    return renamed;
}

}  // namespace

bool mkdir(const char* path) {
    NormalText name(path, false);
    if (!may_change(name, path)) return false;
    registry::State& state = registry::state();
    const registry::ExclusiveHold hold(state);
    if (name.view() == state.index.name() || state.index.find(name.c_str()) != nullptr) return true;
    if (state.head == nullptr) return refuse(EFSError::NOT_INITIALIZED, path, "No source is registered.");
    const ErrorScope scope;
    if (state.head->source->mkdir(directory_path(NormalText(path, true), false))) return true;
    if (!scope.has_error()) set_error(EFSError::ACCESS_DENIED, path, "The first source did not make the directory.");
    return false;
}

bool rename(const char* from, const char* to) {
    if (!may_change(NormalText(from, false), from) || !may_change(NormalText(to, false), to)) return false;
    const fs::path old_name(from, true);
    const fs::path new_name(to, false);
    if (old_name.EmptyFile() || !is_creatable(new_name)) {
        return refuse(EFSError::INVALID_NAME, to, "A file cannot bear this name.");
    }
    registry::State& state = registry::state();
    const registry::ExclusiveHold hold(state);
    return rename_held(state, old_name, new_name, from);
}

bool rem_file(const char* path, FFSOpenFlags::FLAGS flags) {
    const CachePath prefixed(path, flags);
    if (!may_change(NormalText(prefixed.c_str(), false), path)) return false;
    return with_holder<registry::ExclusiveHold>(prefixed.c_str(), false, [&](CFSSource& source, const fs::path& name) {
        if (!source.writable()) {
            return refuse(EFSError::READ_ONLY, path, "The source that holds the file cannot be written.");
        }
        const ErrorScope scope;
        if (source.rem_file(name)) return true;
        if (!scope.has_error()) set_error(EFSError::ACCESS_DENIED, path, "The source did not remove the file.");
        return false;
    });
}

void rem_dir(const char* path) {
    const NormalText name(path, false);
    if (!may_change(name, path)) return;
    const fs::path directory = directory_path(name, true);
    registry::State& state = registry::state();
    const registry::ExclusiveHold hold(state);
    fs::path inner;
    CFSSource* const holder = registry::first_source(state, [&](CFSSource& source) {
        inner = below_root(source, directory);
        return source.writable() && !inner.Empty() && has_directory(state, source, inner);
    });
    if (holder == nullptr) {
        set_error(EFSError::NOT_FOUND, path, "No writable source has this directory.");
        return;
    }
    holder->rem_dir(inner);
    registry::rebuild_index(state);
}

fs::string getOutLocationDebugHelper(const char* path) {
    const fs::path name(path, false);
    if (name.Empty()) return {};
    fs::path lower = name;
    lower.Lowercase();
    registry::State& state = registry::state();
    const registry::SharedHold hold(state);
    CFSSource* target = registry::first_source(state, [&](CFSSource& s) { return s.writable() && s.exists(lower); });
    if (target == nullptr && state.head != nullptr && state.head->source->writable()) target = state.head->source;
    if (target == nullptr) return {};
    char native[platform::path_buffer_size] = "";
    auto* const on_disk = dynamic_cast<NativeSource*>(target);
    if (on_disk == nullptr || !on_disk->native_path(name, native, sizeof(native))) return {};
    return native;
}

}  // namespace fs
