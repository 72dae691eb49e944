#pragma once

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>

#include <engine/filesystem/access/open.h>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/name_list.h"
#include "engine/filesystem/contract/open_file.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/registry/holders.h"

// What the files of this room share. All of it throws std::bad_alloc for want of memory; exported functions guard.

namespace fs {

/// The path itself, or behind the cache directory when IN_CACHE_DIR asks for that. Null is "".
std::string with_cache_directory(const char* path, FFSOpenFlags::FLAGS flags);

using registry::ExclusiveGuard;
using registry::Match;
using registry::match_of;  // of the flags of an open
using registry::SharedGuard;

/// What `use(source, name)`, or a question of the source itself, answers for the first source that holds `path`;
/// `missing`, with the failure stored, when none does. Runs under the registry's lock, taken as `Guard` does.
template <typename Guard = SharedGuard, typename Result, typename Use>
Result with_holder(const char* path, Match match, Result missing, Use use) {
    return guarded(path, missing, [&] {
        const fs::path name = lookup_name(path);
        const Guard guard;
        CFSSource* const holder = registry::first_holder(name, match);
        if (holder != nullptr) return std::invoke(use, *holder, name);
        set_error(EFSError::NOT_FOUND, path, "No source holds a file of this name.");
        return missing;
    });
}

/// Whether `change(source, name)` was done by the source that holds just this name; where that gives no reason, `why` is.
template <typename Guard = SharedGuard, typename Change>
bool change_held(const char* path, const char* why, Change change) {
    return with_holder<Guard>(path, Match::WHOLE, false, [&](CFSSource& source, const fs::path& name) {
        const ErrorScope scope;
        return change(source, name) || fail_unless_told(scope, EFSError::ACCESS_DENIED, path, why);
    });
}

/// The source that makes what `name` (a file, or a directory alone) stands for, and the name that it is given:
/// registry::creator, for a full path the source in whose directory it lies, and the fallback for what belongs to the disk
/// alone. Null when there is none.
CFSSource* creator_of(const registry::Concerned& concerned, fs::path& name);
/// Whether `creator` (null: nobody) takes new names; otherwise the failure is stored.
bool may_create(CFSSource* creator, const char* path);

/// For an answer that hides want of memory: throws StoredFailure when there was none since `scope` began.
inline void check_memory(const ErrorScope& scope) {
    if (scope.has_error() && last_error().code == EFSError::OUT_OF_MEMORY) throw StoredFailure();
}

/// The file's length; failed_size, with the failure stored, when it does not tell.
std::uint64_t known_length(SFsFile& file, const char* path);

/// What `use(file, length)` answers for the file of this name, opened for reading; `failure`, with the failure stored,
/// when it cannot be opened or does not tell its length.
template <typename Result, typename Use>
Result with_content(const char* path, Result failure, Use use, FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE) {
    return guarded(path, failure, [&] {
        const FilePtr file(open(path, EFSMode::READ, flags));
        const std::uint64_t length = file ? known_length(*file, path) : failed_size;
        return length != failed_size ? use(*file, length) : failure;
    });
}

struct FreeBlock {
    void operator()(void* block) const { std::free(block); }
};

/// Copies all of `from`, by its length, into what `open_target()` gives, in pieces of `buffer_size` bytes (0: 32768).
/// The first piece is read before the target is opened, so that a source that cannot be read costs no target.
bool copy_content(SFsFile& from, std::uint32_t buffer_size, const char* path,
                  const std::function<SFsFile*()>& open_target);

/// fs::open for reading, with a pin on the source that opened the file. Null with the failure stored.
FilePtr open_pinned(const char* path, FFSOpenFlags::FLAGS flags, registry::Pin& pin);

/// Tells the monitor, if there is one, of a native open that succeeded. Throws what the monitor throws.
void notify_monitor(const char* path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags);

/// Notes a name that was opened for reading, once, when fs::record_access is on. Costs one relaxed load when it is off.
void note_access(const fs::path& name);

}  // namespace fs
