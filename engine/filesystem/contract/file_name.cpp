// File names taken apart and put together by the rules of the C run-time: the directory ends with the last separator
// of either kind, the extension begins with the last "." behind it. Answers may overwrite the text that they come
// from, and one that does not fit into path_capacity bytes is "".
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/platform/text.h"

namespace fs {

namespace {

struct Parts {
    std::string_view drive;
    std::string_view dir;
    std::string_view name;
    std::string_view ext;

    /// Parts stand side by side in the text that they were taken from.
    std::string_view drive_and_dir() const { return {drive.data(), drive.size() + dir.size()}; }
    std::string_view name_and_ext() const { return {name.data(), name.size() + ext.size()}; }
};

Parts split(const char* path) {
    std::string_view rest = view_of(path);
    Parts parts;
    const bool has_drive = knows_drives && rest.size() >= 2 && rest[1] == ':';
    parts.drive = rest.substr(0, has_drive ? 2 : 0);
    rest.remove_prefix(parts.drive.size());
    const std::size_t separator = rest.find_last_of("/\\");
    parts.dir = rest.substr(0, separator == std::string_view::npos ? 0 : separator + 1);
    rest.remove_prefix(parts.dir.size());
    const std::size_t dot = rest.rfind('.');
    parts.name = rest.substr(0, dot);
    parts.ext = rest.substr(parts.name.size());
    return parts;
}

char* write(char* out, std::string_view text) {
    if (out == nullptr) return nullptr;
    const std::size_t length = text.size() < path_capacity ? text.size() : 0;
    if (length != 0) std::memmove(out, text.data(), length);
    out[length] = '\0';
    return out;
}

fs::string to_string(std::string_view text) {
    return guarded(nullptr, fs::string(), [text] { return fs::string(text.size() < path_capacity ? text : ""); });
}

/// A path that is put together in a buffer of its own, so that the answer may go where a part came from.
struct PathBuffer {
    char buffer[path_capacity];
};
struct Built : PathBuffer, platform::BoundedText {
    Built() : BoundedText(buffer) {}
    std::string_view answer() const { return is_cut() ? "" : view(); }
    bool ends_in_separator() const { return !view().empty() && is_separator(view().back()); }
};

void add_extension(Built& path, std::string_view ext) {
    if (!ext.empty() && ext.front() != '.') path.add('.');
    path.add(ext);
}

/// One more component behind the ones before it, with one "/" between them.
void join(Built& path, std::string_view component) {
    if (!path.view().empty()) {
        while (!component.empty() && is_separator(component.front())) component.remove_prefix(1);
    }
    if (component.empty()) return;
    if (!path.view().empty() && !path.ends_in_separator()) path.add('/');
    path.add(component);
}

void join_all(Built& path, const char* first, va_list components) {
    for (const char* component = first; component != nullptr; component = va_arg(components, const char*)) {
        join(path, component);
    }
}

}  // namespace

char* filename_get_ext(char* out, const char* path) { return write(out, split(path).ext); }
char* filename_get_name(char* out, const char* path) { return write(out, split(path).name); }
char* filename_get_path(char* out, const char* path) { return write(out, split(path).drive_and_dir()); }
char* filename_get_fname(char* out, const char* path) { return write(out, split(path).name_and_ext()); }

fs::string filename_get_ext(const fs::string& path) { return to_string(split(path.c_str()).ext); }
fs::string filename_get_name(const fs::string& path) { return to_string(split(path.c_str()).name); }
fs::string filename_get_path(const fs::string& path) { return to_string(split(path.c_str()).drive_and_dir()); }
fs::string filename_get_fname(const fs::string& path) { return to_string(split(path.c_str()).name_and_ext()); }

char* filename_change_extension_inplace(char* path, const char* ext) {
    const Parts parts = split(path);
    Built changed;
    changed.add(parts.drive_and_dir()).add(parts.name);
    add_extension(changed, view_of(ext));
    return write(path, changed.answer());
}

char* remove_slash(char* path) {
    const std::size_t length = view_of(path).size();
    if (length != 0 && path[length - 1] == '/') path[length - 1] = '\0';
    return path;
}

char* append_slash(char* path, std::uint32_t capacity) {
    const std::size_t length = view_of(path).size();
    // The last character is lost on purpose: callers rely on the length staying as it is.
    if (length != 0 && path[length - 1] != '/' && length + 1 < capacity) path[length - 1] = '/';
    return path;
}

char* filename_build_path(char* out, const char* drive, const char* dir, const char* name, const char* ext) {
    Built path;
    path.add(view_of(drive));
    if (!path.view().empty() && !path.view().ends_with(':')) path.add(':');
    const std::string_view directory = view_of(dir);
    path.add(directory);
    if (!directory.empty() && !path.ends_in_separator()) path.add('/');
    path.add(view_of(name));
    add_extension(path, view_of(ext));
    return write(out, path.answer());
}

char* filename_build_path_v(char* out, const char* first, ...) {
    va_list components;
    va_start(components, first);
    Built path;
    join_all(path, first, components);
    va_end(components);
    return write(out, path.answer());
}

char* filename_build_path_vq(char* out, const char* first, ...) {
    va_list components;
    va_start(components, first);
    Built path;
    join_all(path, first, components);
    va_end(components);
    if (path.answer().find(' ') == std::string_view::npos) return write(out, path.answer());
    Built quoted;
    quoted.add('"').add(path.answer()).add('"');
    return write(out, quoted.answer());
}

bool decompose_path(const char* path, char* drive, char* dir, char* name, char* ext) {
    Built copy;  // the parts may go where the path lies
    copy.add(view_of(path));
    if (copy.is_cut()) copy.buffer[0] = '\0';
    const Parts parts = split(copy.buffer);
    write(drive, parts.drive);
    write(dir, parts.dir);
    write(name, parts.name);
    write(ext, parts.ext);
    return !copy.is_cut();
}

fs::string extract_path(const char* path) { return to_string(split(path).drive_and_dir()); }

char* mangle_file_name(char* out, const char* path, std::uint32_t flags) {
    const Parts parts = split(path);
    char suffix[16];
    std::snprintf(suffix, sizeof(suffix), "&%04x", static_cast<unsigned>(flags));
    Built mangled;
    mangled.add(parts.drive_and_dir()).add(parts.name).add(suffix).add(parts.ext);
    return write(out, mangled.answer());
}

char* unmangle_file_name(const char* path, char* out, std::uint32_t& flags) {
    const Parts parts = split(path);
    const std::size_t mark = parts.name.rfind('&');
    const bool is_mangled = mark != std::string_view::npos;
    // The number ends at the extension's "." at the latest.
    flags = is_mangled ? static_cast<std::uint32_t>(std::strtoull(parts.name.data() + mark + 1, nullptr, 16)) : 0;
    Built plain;
    plain.add(parts.drive_and_dir()).add(parts.name.substr(0, mark)).add(parts.ext);
    write(out, plain.answer());
    return is_mangled ? out : nullptr;
}

char* unmangle_file_name_nameonly(const char* path, char* out) {
    std::uint32_t flags = 0;
    unmangle_file_name(path, out, flags);
    return out;
}

std::uint32_t unmangle_file_name_flagsonly(const char* path) {
    char name[path_capacity];
    std::uint32_t flags = 0;
    unmangle_file_name(path, name, flags);
    return flags;
}

}  // namespace fs
