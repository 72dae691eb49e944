#include <algorithm>
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
    fs::string path;  // within its source
    std::size_t name_at = 0;
    std::size_t source_index = 0;  // in asking order
    const char* root = "";

    std::string_view name() const { return std::string_view(path).substr(name_at); }
};

bool has_extension(std::string_view name, const char* ext) {
    if (ext == nullptr) return true;
    const std::size_t dot = name.rfind('.');
    return dot != std::string_view::npos && name.substr(dot) == ext;
}

void collect_source(CFSSource& source, std::size_t index, const char* ext, std::vector<Held>& out) {
    const NameList names(source.get_file_list(nullptr, nullptr, true));
    for (const FS_NAME* name = names.get(); name != nullptr; name = name->next) {
        fs::string path(name->name);
        const std::size_t name_at = path.rfind('/') + 1;  // 0 when there is no separator
        if (!has_extension(std::string_view(path).substr(name_at), ext)) continue;
        out.push_back({.path = std::move(path), .name_at = name_at, .source_index = index, .root = source.root_dir()});
    }
}

void append_dump(CFSSource& source, const char* ext, Lines& out) {
    Lines lines;
    source.dump(lines, ext);
    for (fs::string& line : lines) {
        out.push_back(std::move(line) + " (duplicated resource in the same filesystem source)");
    }
}

/// `first` to `last` bear one name, in asking order. Lines are written when a later source holds it only under
/// directories that the earliest one does not know.
void append_misses(const Held* first, const Held* last, Lines& out) {
    int index = 0;
    for (const Held* held = first; held != last; ++held) {
        if (held->source_index == first->source_index) continue;
        const bool overridden = std::any_of(first, held, [&](const Held& earlier) {
            return earlier.source_index != held->source_index && earlier.path == held->path;
        });
        if (overridden) continue;
        if (index == 0) out.push_back("0. " + fs::string(first->root) + first->path);
        out.push_back(std::to_string(++index) + ". " + held->root + held->path +
                      " (different path when overriding in other filesystem source)");
    }
}

void append_all(const char* ext, Lines& out) {
    std::vector<Held> held;
    std::size_t index = 0;
    registry::for_each_source([&](CFSSource& source) {
        append_dump(source, ext, out);
        collect_source(source, index++, ext, held);
    });
    std::stable_sort(held.begin(), held.end(), [](const Held& a, const Held& b) { return a.name() < b.name(); });
    for (std::size_t from = 0; from < held.size();) {
        std::size_t to = from + 1;
        while (to < held.size() && held[to].name() == held[from].name()) ++to;
        append_misses(held.data() + from, held.data() + to, out);
        from = to;
    }
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
