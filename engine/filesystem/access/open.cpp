#include <engine/filesystem/access/open.h>

#include <string>

#include "engine/filesystem/access/access_record.h"
#include "engine/filesystem/access/cache_path.h"
#include "engine/filesystem/contract/open_rules.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/registry/registry.h"

// Opening by name. A name is put into normal form once and then asked of the sources in their order.
//
// Reading takes the first source that can open the name; one that holds it and fails is passed over like one that does
// not. Writing takes the first writable source that opens it in place; a protected source that holds the name ends the
// search, so that what it shields is not written anywhere else. What nobody opened in place the first source of the
// list creates, whatever kind it is; only what a full path names is made by the fallback, where a mode or a flag makes
// files.
//
// The lock is held shared while sources are asked and exclusive while one creates. Between the two another thread may
// create the same file; the creating source copes by creating always.

namespace fs {

namespace {

bool has_sources(registry::State& state) {
    const registry::SharedHold hold(state);
    return state.count != 0;
}

SFsFile* open_in_place(CFSSource& source, const fs::path& name, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    switch (mode) {
        case EFSMode::READ:
            return source.open_read(name, flags);
        case EFSMode::WRITE:
            return source.open_write(name, flags);
        case EFSMode::APPEND:
            return source.open_append(name, flags);
        case EFSMode::READ_WRITE:
            return source.open_read_write(name, flags);
    }
    return nullptr;
}

SFsFile* find_to_read(registry::State& state, const fs::path& name, FFSOpenFlags::FLAGS flags) {
    const registry::SharedHold hold(state);
    for (const registry::Node* node = state.head; node != nullptr; node = node->next) {
        if (SFsFile* const file = node->source->open_read(name, flags)) return file;
    }
    return nullptr;
}

SFsFile* open_to_read(registry::State& state, const fs::path& name, const char* path, FFSOpenFlags::FLAGS flags) {
    ErrorScope scope;
    SFsFile* const file = find_to_read(state, name, flags);
    if (file != nullptr) {
        scope.forget();
        note_access(name);
    } else if (!scope.has_error()) {
        set_error(EFSError::NOT_FOUND, path, "No source holds a file of this name.");
    }
    return file;
}

/// Whether the source is the fallback, asked for a file that is yet to be made: one that is not named by a full path is
/// made in the first source, never in whichever directory the process happens to stand.
bool would_make_elsewhere(const registry::State& state, const registry::Node* node, const fs::path& name) {
    return node == state.end_marker && !is_full_path(name.PathName()) && !node->source->exists(name);
}

enum class Found { FILE, SHIELDED, NOTHING };

/// Looks for a source that opens the name in place; `file` is set for FILE alone.
Found find_to_write(registry::State& state, const fs::path& name, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags,
                    SFsFile*& file) {
    const registry::SharedHold hold(state);
    for (const registry::Node* node = state.head; node != nullptr; node = node->next) {
        CFSSource& source = *node->source;
        if (!source.writable()) {
            if (source.is_protected() && source.exists(name)) return Found::SHIELDED;
            continue;
        }
        if (would_make_elsewhere(state, node, name)) continue;
        file = open_in_place(source, name, mode, flags);
        if (file != nullptr) return Found::FILE;
    }
    return Found::NOTHING;
}

/// Whether a file of this name may be made: not without a name, and not above the source.
bool is_creatable(const fs::path& name) {
    return !name.EmptyFile() && name.FileNameView() != ".." && !name.PathNameView().starts_with("../");
}

/// The first source makes the file. Its directory joins the index under the same hold, so that no look-up sees one
/// without the other.
SFsFile* create(registry::State& state, const char* path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    fs::path name(path, false);
    if (!is_creatable(name)) {
        set_error(EFSError::INVALID_NAME, path, "A file cannot be created without a name, or above its source.");
        return nullptr;
    }
    const registry::ExclusiveHold hold(state);
    if (state.count == 0) return nullptr;
    CFSSource& first = *state.head->source;
    SFsFile* const file =
        mode == EFSMode::READ_WRITE ? first.create_read_write(name, flags) : first.create_write(name, flags);
    if (file == nullptr) return nullptr;
    name.Lowercase();
    state.index.add_path(name.PathName());
    return file;
}

SFsFile* open_to_write(registry::State& state, const fs::path& name, const char* path, EFSMode::TYPE mode,
                       FFSOpenFlags::FLAGS flags) {
    ErrorScope scope;
    SFsFile* file = nullptr;
    const Found found = find_to_write(state, name, mode, flags, file);
    if (found == Found::SHIELDED) {
        set_error(EFSError::ACCESS_DENIED, path,
                  "A protected source holds this name and shields it from being written.");
        return nullptr;
    }
    if (found == Found::NOTHING) file = create(state, path, mode, flags);
    if (file != nullptr) {
        scope.forget();
    } else if (!scope.has_error()) {
        set_error(EFSError::NOT_FOUND, path, "No source opened the file, and the first source did not create it.");
    }
    return file;
}

}  // namespace

SFsFile* open(const char* path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    registry::State& state = registry::state();
    if (!has_sources(state)) {
        set_error(EFSError::NOT_INITIALIZED, path, "No source is registered.");
        return nullptr;
    }
    if (!is_valid_open(mode, flags)) {
        set_error(EFSError::INVALID_ARGUMENT, path, "Mode and flags of the open exclude each other.");
        return nullptr;
    }
    const CachePath prefixed(path, flags);
    const fs::path name(prefixed.c_str(), true);
    if (name.Empty()) {
        set_error(EFSError::INVALID_NAME, path, "An empty path names no file.");
        return nullptr;
    }
    if (mode == EFSMode::READ) return open_to_read(state, name, prefixed.c_str(), flags);
    return open_to_write(state, name, prefixed.c_str(), mode, flags);
}

}  // namespace fs
