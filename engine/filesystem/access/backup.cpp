#include <cstdio>
#include <string_view>

#include <engine/filesystem/access/manage.h>
#include <engine/filesystem/access/open.h>
#include <engine/filesystem/contract/path.h>

#include "engine/filesystem/contract/set_error.h"

// Backup generations: NAME.bak is the newest, then NAME.ba1, .ba2 and .ba3. Making a backup moves each one step back and
// the file itself into the newest. A move is a copy and then a removal, oldest first, so that whenever it stops, each
// generation's bytes stand whole under at least one name. The first copy that fails therefore ends the rotation: going
// on would write over what has not been moved. A removal that fails does not: what it leaves stands elsewhere too.

namespace fs {

namespace {

constexpr int generations = 4;
constexpr std::uint32_t buffer_size = 32768;

struct GenerationNames {
    char name[generations][path_capacity];
};

/// False when the names do not fit.
bool build_names(const fs::string& file, GenerationNames& out) {
    constexpr std::string_view ending = ".bak";
    if (file.size() + ending.size() >= path_capacity) return false;
    for (int g = 0; g < generations; ++g) {
        std::snprintf(out.name[g], path_capacity, "%s%s", file.c_str(), ending.data());
        if (g != 0) out.name[g][file.size() + ending.size() - 1] = static_cast<char>('0' + g);
    }
    return true;
}

/// Whether the bytes of `from` stand under `to` now. `to` was moved or removed before; what a failed copy leaves of it
/// would be taken for a backup.
bool move_file(const char* from, const char* to) {
    if (copy(from, to, buffer_size)) {
        rem_file(from);
        return true;
    }
    const SFsError why = last_error();
    if (exists(to)) rem_file(to);
    set_error(why.code, why.path.c_str(), why.text.c_str(), why.os_code);
    return false;
}

/// How many generations there are, the oldest taken to exist when all others do.
int count_generations(const GenerationNames& names) {
    int count = 1;
    while (count < generations && exists(names.name[count - 1])) ++count;
    return count;
}

bool rotate(const GenerationNames& names) {
    const int count = count_generations(names);
    if (count == generations && exists(names.name[generations - 1])) rem_file(names.name[generations - 1]);
    for (int g = count - 2; g >= 0; --g) {
        if (!move_file(names.name[g], names.name[g + 1])) return false;
    }
    return true;
}

}  // namespace

void create_backup_copy(const char* path) {
    if (path == nullptr || path[0] == '\0') return;
    const fs::string file = root_path(path);
    if (file.empty()) return;
    GenerationNames names;
    if (!build_names(file, names)) {
        set_error(EFSError::INVALID_NAME, path, "The name of a backup would be longer than 259 bytes.");
        return;
    }
    if (rotate(names)) move_file(file.c_str(), names.name[0]);
}

}  // namespace fs
