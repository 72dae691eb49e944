#include <engine/filesystem/access/open.h>

#include <utility>

#include <engine/filesystem/contract/locating_source.h>
#include <engine/filesystem/contract/native_source.h>
#include <engine/filesystem/contract/replacing_file.h>

#include "engine/filesystem/access/parts.h"
#include "engine/filesystem/contract/disk_use_scope.h"
#include "engine/platform/files.h"

// Opening by name. A name is put into normal form once and then asked of the sources in their order.
//
// Reading takes the first source that can open the name; one that holds it and fails is passed over like one that does
// not. Writing takes the first writable source that opens it in place; a protected source that holds the name ends the
// search, so that what it shields is not written anywhere else. What nobody holds is created: by registry::creator, or by
// the source in whose directory a full path lies, and in the way of the disk where it lies in none.
//
// A source can answer a write-type open in three ways: it opens the file, it does not hold it, or it holds it and fails.
// Behind one that failed nothing is written, since reading would go on finding the file that could not be written; only
// a source before it may still create. And creating, which empties what it meets, never meets a file that an append or
// read-write open is for.
//
// The lock is held shared while sources are asked and exclusive while one creates. What a LocatingSource holds is opened for
// reading without it, under a pin, so that a slow disk stops no lookup: when that fails, the search goes on behind the source.

namespace fs {

namespace {

struct Request {
    const char* text;  // with the caller's case
    const fs::path& name;
    EFSMode::TYPE mode;
    FFSOpenFlags::FLAGS flags;
};

SFsFile* open_in_place(CFSSource& source, const Request& request) {
    constexpr decltype(&CFSSource::open_read) opens[] = {&CFSSource::open_read, &CFSSource::open_write,
                                                         &CFSSource::open_append, &CFSSource::open_read_write};
    return (source.*opens[request.mode])(request.name, request.flags);
}

bool holds(CFSSource& source, const Request& request) {
    return registry::holds(source, request.name, match_of(request.flags));
}

/// A source that matches by the end is asked first whether it holds just this name, where that is wanted.
bool is_passed_over(CFSSource& source, const Request& request) {
    return match_of(request.flags) == Match::WHOLE && !registry::holds_whole(source, request.name);
}

/// What a walk over the sources came to: a file, or one that is yet to be opened.
struct FoundToRead {
    FilePtr file;
    LocatingSource* opener = nullptr;  // of what was located
    LocatingSource::Located located;
    registry::Pin pin;  // on the source, where it was asked for or the file is yet to be opened
};

/// Asks the sources behind the one that `found` has a pin on; all of them when that was removed meanwhile, or there is none.
void find_to_read(const Request& request, FoundToRead& found, bool pins) {
    const SharedGuard guard;
    if (registry::state().empty()) set_error(EFSError::NOT_INITIALIZED, request.text, "No source is registered.");
    const auto is_pinned = [&](const CFSSource& source) { return found.pin.Holds(source); };
    bool is_behind = found.pin.IsEmpty() || registry::first_source(is_pinned) == nullptr;
    registry::first_concerned(request.name, [&](CFSSource& source) {
        if (!is_behind) return is_behind = is_pinned(source), false;
        if (is_passed_over(source, request)) return false;
        using Answer = LocatingSource::Answer;
        auto* const locating = dynamic_cast<LocatingSource*>(&source);
        const Answer answer =
            locating ? locating->locate(request.name, request.flags, found.located) : Answer::OPEN_READ;
        if (answer == Answer::OPEN_READ) found.file.reset(open_in_place(source, request));
        if (answer == Answer::LOCATED) found.opener = locating;
        if (!found.opener && !found.file) return false;
        if (found.opener || pins) found.pin = registry::Pin(source);
        return true;
    });
}

FilePtr open_to_read(const Request& request, registry::Pin* pin) {
    ErrorScope scope;
    FoundToRead found;
    do {
        found.opener = nullptr;
        find_to_read(request, found, pin != nullptr);
        if (!found.opener) break;
        const registry::UnlockedAsking asking;
        found.file.reset(found.opener->open_located(request.name, request.flags, found.located));
    } while (!found.file);
    if (found.file) {
        scope.forget();
        note_access(request.name);
        if (pin != nullptr) *pin = std::move(found.pin);
    } else {
        fail_unless_told(scope, EFSError::NOT_FOUND, request.text, "No source holds a file of this name.");
    }
    return std::move(found.file);
}

enum class Answer { OPENED, ABSENT, FAILED };

Answer ask_to_write(CFSSource& source, const Request& request, FilePtr& file) {
    if (is_passed_over(source, request)) return Answer::ABSENT;
    const ErrorScope scope;
    file.reset(open_in_place(source, request));
    if (file) return Answer::OPENED;
    if (scope.has_error()) return last_error().code == EFSError::NOT_FOUND ? Answer::ABSENT : Answer::FAILED;
    // The source gives no reason. What reading would open here may not be missed for another file.
    if (!source.exists(request.name) || !FilePtr(source.open_read(request.name, FFSOpenFlags::NONE))) {
        return Answer::ABSENT;
    }
    set_error(EFSError::ACCESS_DENIED, request.text, "The source that holds the file did not open it for writing.");
    return Answer::FAILED;
}

/// What the walk over the sources came to: a file, the source that ended it, or neither.
struct Found {
    FilePtr file;
    bool is_shielded = false;  // by a protected source
    const CFSSource* failed = nullptr;
};

Found find_to_write(const Request& request) {
    const SharedGuard guard;
    Found found;
    registry::first_concerned(request.name, [&](CFSSource& source) {
        if (!source.writable()) {
            return found.is_shielded = source.is_protected() && holds(source, request);
        }
        // The fallback would make a file in whichever directory the process happens to stand.
        if (registry::is_fallback(&source) && !source.exists(request.name)) return false;
        const Answer answer = ask_to_write(source, request, found.file);
        if (answer == Answer::FAILED) found.failed = &source;
        return answer != Answer::ABSENT;
    });
    return found;
}

/// A file that lies in no mounted directory is made on the disk, and no source learns of it.
FilePtr create_outside(const fs::path& name, const Request& request) {
    if (!create_directories(full_name(name))) return nullptr;
    // An append and a read-write open make what is missing as they are, and cut nothing that another process has made.
    const auto create = request.mode == EFSMode::WRITE ? FFSOpenFlags::CREATE : FFSOpenFlags::NONE;
    return FilePtr(
        open_in_place(*registry::state().fallback,
                      {.text = request.text, .name = name, .mode = request.mode, .flags = request.flags | create}));
}

/// Whether the name is there after all, so that creating it would meet or shadow a file: another thread made it since the
/// sources were asked, or the source knows a file that the disk has lost. `file` is the answer when there is one.
bool is_there(CFSSource& creator, const Request& request, FilePtr& file) {
    if (!holds(creator, request)) return false;
    if (ask_to_write(creator, request, file) != Answer::ABSENT) return true;
    return request.mode != EFSMode::WRITE || !registry::holds_whole(creator, request.name);
}

/// Where the disk holds, or would hold, a file of the source; "" when it stands elsewhere.
std::string native_name(CFSSource& source, const fs::path& name) {
    auto* const native = dynamic_cast<NativeSource*>(&source);
    char path[platform::path_buffer_size];
    return native != nullptr && native->native_path(name, path, sizeof path) ? path : "";
}

/// Opens in place what the disk holds and the source has not listed: another process made it, or a listing failed. The
/// source lists its directory again.
FilePtr open_unlisted(CFSSource& creator, const fs::path& name, const Request& request) {
    std::string_view directory = name.PathNameView();
    if (directory.ends_with('/')) directory.remove_suffix(1);
    creator.refresh_dir(std::string(directory).c_str());
    const ErrorScope scope;
    FilePtr file;
    if (!is_there(creator, request, file)) {
        fail_unless_told(scope, EFSError::ALREADY_EXISTS, request.text,
                         "The disk holds a file of this name that its source could not list.");
    }
    return file;
}

/// Whether there is such a source, and it is asked before the other one.
bool is_before(const CFSSource* source, const CFSSource* other) {
    const auto is_either = [&](const CFSSource& asked) { return &asked == source || &asked == other; };
    return source != nullptr && source != other && registry::first_source(is_either) == source;
}

/// Whether a source that is asked before the creator holds the name, so that the new file would never be read.
bool is_shadowed(const registry::Concerned& concerned, const CFSSource& creator, const Request& request) {
    if (concerned.home() != nullptr) return false;
    CFSSource* const first =
        registry::first_source([&](CFSSource& source) { return &source == &creator || holds(source, request); });
    if (first == &creator) return false;
    const fs::path& holder = first->path();
    const std::string text = full_name(request.name) + " is held by " +
                             (holder.EmptyFile() ? holder.PathName() : holder.FileName()) + ", which is asked first.";
    set_error(EFSError::ALREADY_EXISTS, request.text, text);
    return true;
}

/// What a new file that is written beside its place does when it gets its place: it joins its source and the index.
auto entry_on_commit(CFSSource& creator, const fs::path& name) {
    return [owner = &creator, path = native_name(creator, name), name](const auto& place) {
        return guarded(name.FileName(), false, [&] {
            const ExclusiveGuard guard;
            CFSSource* const source = registry::first_source([&](CFSSource& held) { return &held == owner; });
            // It may have been removed, and another source stand in its place.
            if (source == nullptr || native_name(*source, name) != path) return place();
            fs::dir directory;
            registry::prepare_directory(name, directory);
            auto* const native = dynamic_cast<NativeSource*>(source);
            if (!(native != nullptr ? native->add_file(name, place) : place())) return false;
            registry::state().index.take_over(directory);
            return true;
        });
    };
}

/// False for a file that is in its place already.
bool add_when_committed(SFsFile& file, CFSSource& creator, const fs::path& name) {
    auto* const replacing = dynamic_cast<ReplacingFile*>(&file);
    if (replacing == nullptr) return false;
    try {
        replacing->on_commit(entry_on_commit(creator, name));
    } catch (...) {  // no memory; and closing the file would put it in its place as it is
        replacing->discard();
        throw;
    }
    return true;
}

/// The directory of the new file joins the index under the same guard, so that no lookup sees one without the other.
FilePtr create(const Request& request, const CFSSource* failed) {
    fs::path name = creation_name(request.text);
    const ExclusiveGuard guard;
    const registry::Concerned concerned(request.name);
    CFSSource* const creator = creator_of(concerned, name);
    if (failed != nullptr && (!is_before(creator, failed) || !creator->writable())) return nullptr;
    if (!is_creatable_name(name)) {
        return refuse(EFSError::INVALID_NAME, request.text,
                      "A file needs a name that every system can hold, and none is made above its source."),
               nullptr;
    }
    if (!may_create(creator, request.text)) return nullptr;
    if (registry::is_fallback(creator)) return create_outside(name, request);
    if (is_shadowed(concerned, *creator, request)) return nullptr;
    FilePtr file;
    if (is_there(*creator, request, file)) return file;
    if (request.mode != EFSMode::WRITE && native_does_file_exist(native_name(*creator, name).c_str()))
        return open_unlisted(*creator, name, request);
    fs::dir directory;
    registry::prepare_directory(name, directory);
    file.reset(request.mode == EFSMode::READ_WRITE ? creator->create_read_write(name, request.flags)
                                                   : creator->create_write(name, request.flags));
    if (file && !add_when_committed(*file, *creator, name)) registry::state().index.take_over(directory);
    return file;
}

FilePtr open_to_write(const Request& request) {
    ErrorScope scope;
    Found found = find_to_write(request);
    if (found.is_shielded) {
        return refuse(EFSError::ACCESS_DENIED, request.text,
                      "A protected source holds this name and shields it from being written."),
               nullptr;
    }
    if (!found.file) found.file = create(request, found.failed);
    if (found.file) {
        scope.forget();
    } else {
        fail_unless_told(scope, EFSError::NOT_FOUND, request.text,
                         "No source opened the file, and the first source did not create it.");
    }
    return std::move(found.file);
}

FilePtr open_request(const char* path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags, registry::Pin* pin = nullptr) {
    if (!is_valid_open(mode, flags)) {
        return refuse(EFSError::INVALID_ARGUMENT, path, "Mode and flags of the open exclude each other."), nullptr;
    }
    const fs::path name = lookup_name(path);
    if (name.Empty()) {
        return refuse(EFSError::INVALID_NAME, path, "An empty path names no file."), nullptr;
    }
    const Request request{.text = path, .name = name, .mode = mode, .flags = flags};
    return mode == EFSMode::READ ? open_to_read(request, pin) : open_to_write(request);
}

}  // namespace

FilePtr open_pinned(const char* path, FFSOpenFlags::FLAGS flags, registry::Pin& pin) {
    return open_request(path, EFSMode::READ, flags, &pin);
}

SFsFile* open(const char* path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    const DiskUse use("opened", path);
    return guarded<SFsFile*>(path, nullptr, [&] {
        if ((flags & FFSOpenFlags::IN_CACHE_DIR) == 0) return open_request(path, mode, flags).release();
        return open_request(with_cache_directory(path, flags).c_str(), mode, flags).release();
    });
}

}  // namespace fs
