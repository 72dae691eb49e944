#include "pack_check.h"

#include <algorithm>
#include <system_error>

#include <engine/filesystem.h>

#include "report.h"

namespace stdfs = std::filesystem;

namespace {

/// Why mounts hide a file or a directory by its name alone; null when they do not.
const char* hidden_because(const std::string& file_name) {
    if (file_name.starts_with('#')) return "mounts hide names that begin with \"#\"";
    return file_name.find('\\') != std::string::npos ? "its name holds a backslash, which separates directories"
                                                     : nullptr;
}

}  // namespace

void PackCheck::tell(const std::string& path, const std::string& reason) {
    note(path, reason);
    ++findings_;
}

void PackCheck::tell_error(const std::string& path, const std::string& reason) {
    tell(path, reason);
    ++errors_;
}

void PackCheck::look_for_unshown(const std::string& dir) {
    root_length_ = full_native_path(dir).size();
    walk(fs::to_path(dir), "");
}

void PackCheck::walk(const stdfs::path& dir, const std::string& name) try {
    std::vector<stdfs::directory_entry> entries(stdfs::directory_iterator(dir), {});
    std::sort(entries.begin(), entries.end());
    for (const stdfs::directory_entry& entry : entries)
        look_at_entry(entry, name + fs::from_path(entry.path().filename()));
} catch (const stdfs::filesystem_error& error) {
    tell_error(fs::from_path(dir), "it cannot be listed: " + error.code().message());
}

void PackCheck::look_at_entry(const stdfs::directory_entry& entry, const std::string& name) {
    const std::string path = fs::from_path(entry.path());
    std::error_code unknown;
    const bool is_link = entry.is_symlink(unknown);
    const bool is_directory = entry.is_directory(unknown);
    if (is_directory ? globs_.leave_out(name) : !globs_.take(name)) return;
    const std::string lower = lower_case(name);
    const char* const hidden = hidden_because(fs::from_path(entry.path().filename()));
    if (root_length_ + 1 + name.size() > longest_path)
        tell_error(path, "its path is longer than 259 bytes");
    else if (hidden != nullptr)
        tell(path, hidden);
    else if (is_directory && !is_link)
        walk(entry.path(), name + "/");
    else if (is_directory && !tree_.holds_below(lower))
        tell(path, "the link to a directory shows nothing: it is empty, or leads to where one came from");
    else if (entry.is_regular_file(unknown))
        look_at_file(path, lower);
    else if (!is_directory)
        tell(path, is_link && !entry.exists(unknown) ? "the link leads nowhere" : "it is no regular file");
}

void PackCheck::look_at_file(const std::string& path, const std::string& name) {
    walked_.add(1);
    if (!tree_.holds(name)) return tell(path, "a mount does not show it");
    const auto [first, is_new] = seen_.emplace(name, path);
    if (is_new) return;
    const bool is_packed = full_native_path(path) == tree_.native_path(name);
    const std::string& other = is_packed ? first->second : path;
    tell(other, "another name differs from it in case alone, and is packed in its place: " +
                    (is_packed ? path : first->second));
}

void PackCheck::look_at(const std::vector<std::string>& names, const std::string& where) {
    for (const std::string& name : names) {
        std::string label = where;
        label.append("/").append(name);
        fs::clear_error();
        const std::uint64_t size = tree_.size_of(name);
        if (size == failed)
            tell_error(label, "it cannot be read: " + fs::last_error().text);
        else if (size > most_bytes)
            tell_error(label, "it has " + std::to_string(size) + " bytes; an entry of a pack holds less than 4 GiB");
        else if (!fs::pack_writer::check_name(name.c_str()))
            tell_error(label, fs::last_error().text);
        else if (as_utf8(name) != printable(name))
            tell(label, "its name is not UTF-8: other systems read another one");
        total_bytes_ += size;
    }
}
