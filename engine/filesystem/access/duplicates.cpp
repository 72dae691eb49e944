#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <engine/filesystem/access/search.h>

#include "engine/filesystem/access/parts.h"

// Names held more than once. Within one source that is for the source to tell (its dump). Across sources a file of the
// same directory and name is an override, as intended; the same name under another directory most likely was meant to
// be one and misses its target.

namespace fs {

namespace {

using Lines = ztl::vector<fs::string>;

struct Held {
    fs::string path;           // within its source
    std::size_t source_index;  // in asking order
    const char* root;
};
using HeldByName = std::map<fs::string, std::vector<Held>>;

bool has_extension(std::string_view name, const char* ext) {
    if (ext == nullptr) return true;
    const std::size_t dot = name.rfind('.');
    return dot != std::string_view::npos && name.substr(dot) == ext;
}

void collect_source(CFSSource& source, std::size_t index, const char* ext, HeldByName& out) {
    const NameList names(source.get_file_list(nullptr, nullptr, true));
    for (const FS_NAME* held = names.get(); held != nullptr; held = held->next) {
        const std::string_view path(held->name);
        const std::string_view name = path.substr(path.rfind('/') + 1);  // all of it when there is no separator
        if (has_extension(name, ext)) out[fs::string(name)].push_back({fs::string(path), index, source.root_dir()});
    }
}

void append_dump(CFSSource& source, const char* ext, Lines& out) {
    Lines lines;
    source.dump(lines, ext);
    for (fs::string& line : lines) {
        out.push_back(std::move(line) + " (duplicated resource in the same filesystem source)");
    }
}

/// All of `held` bear one name, in asking order. Lines are written when a later source holds it only under directories that
/// the earliest one does not know.
void append_misses(const std::vector<Held>& held, Lines& out) {
    const Held& first = held.front();
    int index = 0;
    for (auto later = held.begin(); later != held.end(); ++later) {
        if (later->source_index == first.source_index) continue;
        const bool overridden = std::any_of(held.begin(), later, [&](const Held& earlier) {
            return earlier.source_index != later->source_index && earlier.path == later->path;
        });
        if (overridden) continue;
        if (index == 0) out.push_back("0. " + fs::string(first.root) + first.path);
        out.push_back(std::to_string(++index) + ". " + later->root + later->path +
                      " (different path when overriding in other filesystem source)");
    }
}

void append_all(const char* ext, Lines& out) {
    HeldByName held;
    std::size_t index = 0;
    registry::for_each_source([&](CFSSource& source) {
        append_dump(source, ext, out);
        collect_source(source, index++, ext, held);
    });
    for (const auto& [name, holders] : held) append_misses(holders, out);
}

}  // namespace

void find_duplicates(Lines& out, const char* ext) {
    guarded(nullptr, [&] {
        Lines lines = out;
        const registry::SharedGuard guard;
        append_all(ext, lines);
        out.swap(lines);
    });
}

}  // namespace fs
