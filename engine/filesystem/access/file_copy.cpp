#include <engine/filesystem/access/manage.h>

#include <engine/filesystem/access/search.h>

#include "engine/filesystem/access/parts.h"
#include "engine/filesystem/contract/path.h"
#include "engine/filesystem/log/message.h"

namespace fs {

namespace {

constexpr MessageSource log_source{"FileSystem", "engine/filesystem/filesystem"};

bool is_empty(const char* path) { return path == nullptr || path[0] == '\0'; }

bool refuse_empty(const char* path) { return refuse(EFSError::INVALID_NAME, path, "An empty path names no file."); }

/// Whether writing `to` would write the very file that `from` is read from: the same name, held by a writable source,
/// which a write would reach first.
bool is_itself(const char* from, const char* to) {
    const fs::path name = lookup_name(from);
    if (!(name == lookup_name(to))) return false;
    const registry::SharedGuard guard;
    CFSSource* const holder = registry::first_holder(name, registry::Match::WHOLE);
    return holder != nullptr && holder->writable();
}

SFsFile* open_destination(const char* from, const char* to) {
    SFsFile* file = nullptr;
    if (is_itself(from, to)) {
        set_error(EFSError::IN_USE, to, "A file cannot be copied onto itself.");
    } else {
        file = open(to, EFSMode::WRITE, FFSOpenFlags::WHOLE_NAME);
    }
    if (file != nullptr) return file;
    log_message(log_source, Log::ELevel::ERRR, __LINE__, "ERROR [fs::copy] failed to open destination file %s -> %s\n",
                from, to);
    return nullptr;
}

}  // namespace

bool copy(const char* from, const char* to, std::uint32_t buffer_size) {
    if (is_empty(from) || is_empty(to)) return refuse_empty(is_empty(from) ? from : to);
    return guarded(from, false, [&] {
        const FilePtr source(open(from, EFSMode::READ, FFSOpenFlags::WHOLE_NAME));
        if (source) return copy_content(*source, buffer_size, from, [&] { return open_destination(from, to); });
        log_message(log_source, Log::ELevel::ERRR, __LINE__, "ERROR [fs::copy] failed to open source file %s -> %s\n",
                    from, to);
        return false;
    });
}

bool copy_dir(const char* from, const char* to) {
    return guarded(from, false, [&] {
        NormalText source(from, false);
        NormalText target(to, true);
        source.drop_trailing_slash();
        target.drop_trailing_slash();
        if (source.names_nothing() || target.names_nothing()) return refuse_empty(source.names_nothing() ? from : to);
        ErrorScope scope;
        const NameList names(search(source.c_str(), nullptr, true, false));
        if (names == nullptr) {
            return fail_unless_told(scope, EFSError::NOT_FOUND, from, "No source holds a file below this directory.");
        }
        bool complete = true;
        for (const FS_NAME* name = names.get(); name != nullptr; name = name->next) {
            const fs::string destination = fs::string(target.view()) + (name->name + source.view().size());
            complete &= copy(name->name, destination.c_str(), 0);
        }
        return complete;
    });
}

}  // namespace fs
