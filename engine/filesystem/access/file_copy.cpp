#include "engine/filesystem/access/file_copy.h"

#include <algorithm>

#include <engine/filesystem/access/manage.h>
#include <engine/filesystem/access/open.h>
#include <engine/filesystem/access/search.h>

#include "engine/filesystem/access/whole_file_parts.h"
#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/log/message.h"
#include "engine/filesystem/registry/registry.h"

namespace fs {

namespace {

constexpr MessageSource log_source{"FileSystem", "engine/filesystem/filesystem"};
constexpr std::uint32_t default_buffer_size = 32768;
constexpr std::uint64_t failed = ~std::uint64_t{0};

bool is_empty(const char* path) { return path == nullptr || path[0] == '\0'; }

bool refuse_empty(const char* path) { return refuse(EFSError::INVALID_NAME, path, "An empty path names no file."); }

/// Whether writing `to` would write the very file that `from` is read from: the same name, held by a writable source,
/// which a write would reach first.
bool is_itself(const char* from, const char* to) {
    const fs::path name(from, true);
    if (!(name == fs::path(to, true))) return false;
    registry::State& state = registry::state();
    const registry::SharedHold hold(state);
    CFSSource* const holder = registry::first_source(state, [&](CFSSource& source) { return source.exists(name); });
    return holder != nullptr && holder->writable();
}

SFsFile* open_destination(const char* from, const char* to) {
    if (is_itself(from, to)) {
        set_error(EFSError::IN_USE, to, "A file cannot be copied onto itself.");
        return nullptr;
    }
    const NormalText normal(to, true);
    return open(normal.c_str(), EFSMode::WRITE);
}

}  // namespace

bool copy_content(SFsFile& from, SFsFile& to, std::uint32_t buffer_size, const char* path) {
    const std::uint64_t length = known_length(from, path);
    if (length == failed) return false;
    const std::uint64_t piece = std::min<std::uint64_t>(buffer_size != 0 ? buffer_size : default_buffer_size, length);
    if (piece == 0) return true;
    const PieceBuffer buffer(piece, path);
    if (buffer.data() == nullptr) return false;
    for (std::uint64_t left = length; left != 0;) {
        const std::uint64_t size = std::min(piece, left);
        if (!read_checked(from, path, buffer.data(), size)) return false;
        if (!write_checked(to, path, buffer.data(), size)) return false;
        left -= size;
    }
    return true;
}

bool copy(const char* from, const char* to, std::uint32_t buffer_size) {
    if (is_empty(from) || is_empty(to)) return refuse_empty(is_empty(from) ? from : to);
    const NormalText source_name(from, false);
    const FilePtr source(open(source_name.c_str(), EFSMode::READ));
    if (!source) {
        log_message(log_source, Log::ELevel::ERRR, __LINE__, "ERROR [fs::copy] failed to open source file %s -> %s\n",
                    from, to);
        return false;
    }
    const FilePtr destination(open_destination(from, to));
    if (!destination) {
        log_message(log_source, Log::ELevel::ERRR, __LINE__,
                    "ERROR [fs::copy] failed to open destination file %s -> %s\n", from, to);
        return false;
    }
    return copy_content(*source, *destination, buffer_size, to);
}

bool copy_dir(const char* from, const char* to) {
    NormalText source(from, false);
    NormalText target(to, true);
    source.drop_trailing_slash();
    target.drop_trailing_slash();
    if (source.names_nothing() || target.names_nothing()) return refuse_empty(source.names_nothing() ? from : to);
    FS_NAME* const names = search(source.c_str(), nullptr, true, false);
    if (names == nullptr) set_error(EFSError::NOT_FOUND, from, "No source holds a file below this directory.");
    bool complete = names != nullptr;
    for (const FS_NAME* name = names; name != nullptr; name = name->next) {
        try {
            const fs::string destination = fs::string(target.view()) + (name->name + source.view().size());
            complete &= copy(name->name, destination.c_str(), 0);
        } catch (...) {
            set_error(EFSError::OUT_OF_MEMORY, to, "There is no memory for a file's new name.");
            complete = false;
        }
    }
    free_names(names);
    return complete;
}

}  // namespace fs
