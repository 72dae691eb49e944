#include <algorithm>
#include <string>
#include <vector>

#include <engine/filesystem/access/search.h>
#include <engine/filesystem/sources/directory.h>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/contract/name_list.h"
#include "engine/filesystem/sources/directory/mount/state.h"

// Lists come in the order of 65,536 buckets chosen by a hash of the name, and within a bucket in that of entry: callers
// see it, so it stays, though nothing is kept in buckets.

namespace {

using fs::NameTable;

std::uint32_t bucket_of(std::string_view name) {
    std::uint32_t hash = 0x100001;
    for (const char c : name) hash = hash * 33 ^ static_cast<std::uint32_t>(static_cast<signed char>(c));
    return hash & 0xFFFF;
}

// The wanted files in the order of the buckets.
template <class Wanted>
std::vector<std::uint32_t> collect(const NameTable& table, Wanted&& wanted) {
    std::vector<std::uint64_t> keys;
    for (std::uint32_t file = table.first(); file != NameTable::none; file = table.next(file)) {
        if (wanted(file)) keys.push_back(std::uint64_t{bucket_of(table.name(file))} << 32 | file);
    }
    std::sort(keys.begin(), keys.end());
    return {keys.begin(), keys.end()};  // without the buckets
}

// Puts each file at the front of a list, and tells the search callback. A list comes whole or not at all. Each name has
// room for `room` bytes; where that is not none, one that does not fit in it is left empty.
FS_NAME* list_of(const NameTable& table, const std::vector<std::uint32_t>& files, std::size_t room) {
    const fs::search_callback callback = fs::get_search_callback();
    fs::NameList head;
    for (const std::uint32_t file : files) {
        const std::string_view dir = table.dir(file);
        const std::string_view name = table.name(file);
        const bool fits = room == 0 || dir.size() + name.size() < room;
        fs::prepend(head, fits ? dir : "", fits ? name : "", room);
        if (callback) callback(std::string(dir).c_str(), std::string(name).c_str());
    }
    return head.release();
}

bool has_extension(std::string_view name, const char* ext) {
    if (!ext) return true;
    const std::size_t dot = name.rfind('.');
    return (dot == std::string_view::npos ? std::string_view() : name.substr(dot)) == ext;
}

}  // namespace

FS_NAME* CWin32_dir::get_file_list(const char* dir, const char* mask, bool recursive) {
    return fs::guarded(dir, static_cast<FS_NAME*>(nullptr), [&] {
        const NameTable& table = state_->names->table;
        const auto wanted = [&](std::uint32_t file) {
            return fs::directory_answers(table.dir(file), dir, recursive) && fs::name_matches(table.name(file), mask);
        };
        return list_of(table, collect(table, wanted), 0);
    });
}

FS_NAME* CWin32_dir::search_substring(const char* text) {
    if (!text || *text == '\0') return nullptr;
    return fs::guarded(text, static_cast<FS_NAME*>(nullptr), [&] {
        const NameTable& table = state_->names->table;
        const auto wanted = [&](std::uint32_t file) { return fs::directory_contains(table.dir(file), text); };
        return list_of(table, collect(table, wanted), fs::path_capacity);
    });
}

void CWin32_dir::dump(ztl::vector<fs::string>& lines, const char* ext) {
    // Each file of a name is told with all later ones, so the lines grow with the square of their number; a tree made to
    // exhaust memory that way stops here.
    constexpr std::size_t line_limit = 1'000'000;
    fs::guarded(root_dir(), [&] {
        const NameTable& table = state_->names->table;
        const auto wanted = [&](std::uint32_t file) {
            return table.next_of_name(file) != NameTable::none && has_extension(table.name(file), ext);
        };
        const std::size_t end = lines.size() + line_limit;
        for (const std::uint32_t first : collect(table, wanted)) {
            int index = 0;
            for (std::uint32_t file = first; file != NameTable::none; file = table.next_of_name(file)) {
                if (lines.size() >= end) return;
                fs::string line = std::to_string(index++) + ". " + root_dir();
                lines.push_back(line.append(table.dir(file)).append(table.name(file)));
            }
        }
    });
}
