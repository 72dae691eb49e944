#include <array>
#include <string>

#include <engine/filesystem/access/manage.h>

#include "engine/filesystem/access/parts.h"

// Backup generations: NAME.bak is the newest, then NAME.ba1, .ba2 and .ba3. Making a backup moves each one step back and
// the file itself into the newest. A move is a copy and then a removal, oldest first, so that whenever it stops, each
// generation's bytes stand whole under at least one name. The first copy that fails therefore ends the rotation: going
// on would write over what has not been moved. A removal that fails does not: what it leaves stands elsewhere too.

namespace fs {

namespace {

constexpr std::size_t generations = 4;
constexpr std::uint32_t buffer_size = 32768;
using Names = std::array<std::string, generations>;

bool is_held(const std::string& name) { return exists(name.c_str(), FFSOpenFlags::WHOLE_NAME); }

/// Whether the bytes of `from` stand under `to` now. `to` was moved or removed before; what a failed copy leaves of it
/// would be taken for a backup.
bool move_file(const std::string& from, const std::string& to) {
    if (copy(from.c_str(), to.c_str(), buffer_size)) {
        rem_file(from.c_str());
        return true;
    }
    const ErrorKeeper why;
    if (is_held(to)) rem_file(to.c_str());
    return false;
}

bool rotate(const Names& names) {
    // The oldest is taken to exist when all others do.
    std::size_t count = 1;
    while (count < generations && is_held(names[count - 1])) ++count;
    if (count == generations && is_held(names.back())) rem_file(names.back().c_str());
    for (std::size_t to = count - 1; to != 0; --to) {
        if (!move_file(names[to - 1], names[to])) return false;
    }
    return true;
}

/// The name under which the file's source holds it.
fs::string held_name(const char* path) {
    return with_holder(path, registry::Match::WHOLE, fs::string(), [](CFSSource& source, const fs::path& name) {
        fs::path held;
        source.root_path(held, name);
        return full_name(held.Empty() ? name : held);
    });
}

}  // namespace

void create_backup_copy(const char* path) {
    guarded(path, [&] {
        if (path == nullptr || path[0] == '\0') return;
        const fs::string file = held_name(path);
        if (file.empty()) return;
        const Names names = {file + ".bak", file + ".ba1", file + ".ba2", file + ".ba3"};
        if (names[0].size() >= path_capacity) {
            set_error(EFSError::INVALID_NAME, path, "The name of a backup would be longer than 259 bytes.");
        } else if (rotate(names)) {
            move_file(file, names[0]);
        }
    });
}

}  // namespace fs
