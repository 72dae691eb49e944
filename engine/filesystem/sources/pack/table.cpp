#include "engine/filesystem/sources/pack/table.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "engine/filesystem/contract/path.h"
#include "engine/filesystem/sources/pack/walk.h"

namespace fs {

namespace {

/// A file as the directory tells it, before it has its place.
struct Found {
    PackEntry told;
    std::uint32_t name_offset;  // into the text of all names
    std::uint32_t name_size;
    std::uint32_t dir;  // as the table of names numbers it
};

/// Directories, and what lies in a directory whose name begins with "#", are not files of the pack.
bool is_visible(std::string_view name) {
    return (name.empty() || name.back() != '/') && name.find("/#") == std::string_view::npos;
}

/// Goes through the directory; the names of the files come into `text`.
std::vector<Found> find_files(const PackStore& store, NameTable& dirs, std::string& text) {
    DirectoryWalk walk(store);
    std::vector<Found> files;
    files.reserve(walk.count());
    for (std::string full; walk.next();) {
        full = walk.name();
        const Normalized normal = normalize(full.data(), full.data(), false);
        const std::string_view name = std::string_view(full).substr(0, normal.length);
        if (!is_visible(name)) continue;
        const zip::CentralHeader& header = walk.header();
        files.push_back({.told = {.header_offset = header.header_offset,
                                  .size = header.size,
                                  .packed_size = header.packed_size,
                                  .crc = header.crc},
                         .name_offset = static_cast<std::uint32_t>(text.size()),
                         .name_size = static_cast<std::uint32_t>(name.size() - normal.split),
                         .dir = dirs.intern_dir(name.substr(0, normal.split))});
        text.append(name.substr(normal.split));
    }
    return files;
}

}  // namespace

PackTable read_table(const PackStore& store) {
    PackTable table;
    std::string text;  // at most 65,535 names of as many bytes
    std::vector<Found> files = find_files(store, table.names, text);
    const auto name_of = [&](const Found& file) {
        return std::string_view(text).substr(file.name_offset, file.name_size);
    };
    std::stable_sort(files.begin(), files.end(), [&](const Found& a, const Found& b) {
        const int order = name_of(a).compare(name_of(b));
        return order != 0 ? order < 0 : table.names.dir_text(a.dir) < table.names.dir_text(b.dir);
    });
    table.entries.reserve(files.size());
    table.names.reserve(files.size(), text.size());
    for (const Found& file : files) {
        table.names.add(file.dir, name_of(file), static_cast<std::uint32_t>(table.entries.size()));
        table.entries.push_back(file.told);
    }
    return table;
}

}  // namespace fs
