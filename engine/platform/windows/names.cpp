// Paths made ready for the system, and the first questions about them.
#include "engine/platform/windows/names.h"

#include <algorithm>
#include <cstring>

#include "engine/platform/text.h"

namespace platform {

namespace {

bool is_slash(wchar_t c) { return c == '/' || c == '\\'; }

bool is_letter(wchar_t c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

std::size_t drive_length(std::wstring_view path) {
    return path.size() >= 2 && path[1] == ':' && is_letter(path[0]) ? 2 : 0;
}

bool has_valid_components(std::wstring_view wide) {
    char ascii[path_buffer_size];  // by which the rules of names go; no other character breaks one
    std::ranges::transform(wide, ascii, [](wchar_t c) { return c < 0x80 ? static_cast<char>(c) : '\x80'; });
    std::string_view path(ascii, wide.size());
    path.remove_prefix(drive_length(wide));
    // "//./" and "//?/" lead to devices, and around every rule of names.
    if (path.size() >= 4 && is_slash(path[0]) && is_slash(path[1]) && path[2] == '.' && is_slash(path[3])) return false;
    while (!path.empty()) {
        const std::string_view name = path.substr(0, path.find_first_of("/\\"));
        if (!name.empty() && !is_dots(name) && !is_valid_name(name.data(), name.size())) return false;
        path.remove_prefix(std::min(name.size() + 1, path.size()));
    }
    return true;
}

std::size_t length_without_slashes(std::wstring_view path) {
    const std::size_t root = drive_length(path) + 1;
    while (path.size() > root && is_slash(path.back())) path.remove_suffix(1);
    return path.size();
}

}  // namespace

NativePath::NativePath(const char* path, Use use) {
    const std::string_view text(path, strnlen(path, path_buffer_size));
    if (text.empty()) {
        fail(Failure::INVALID_NAME);
    } else if (text.size() > max_path_bytes) {
        fail(Failure::PATH_TOO_LONG);
    } else if (const std::size_t length = to_wide(text, text_, path_buffer_size);
               length == 0 || !has_valid_components({text_, length})) {
        fail(use == Use::NEW ? Failure::INVALID_NAME : Failure::NOT_FOUND);
    } else {
        length_ = length_without_slashes({text_, length});
    }
    text_[length_] = L'\0';
}

bool ends_in_slash(const char* path) {
    const std::size_t length = std::strlen(path);
    return length != 0 && is_slash(path[length - 1]);
}

Handle open_for_query(const wchar_t* path) {
    constexpr DWORD share_all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    return own(CreateFileW(path, FILE_READ_ATTRIBUTES, share_all, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS,
                           nullptr));
}

bool query(const wchar_t* path, BY_HANDLE_FILE_INFORMATION& out) {
    const Handle handle = open_for_query(path);
    return (handle && GetFileInformationByHandle(handle.get(), &out)) || fail_last();
}

bool find_item(const wchar_t* path, WIN32_FIND_DATAW& item) {
    const HANDLE search = FindFirstFileW(path, &item);
    if (search == INVALID_HANDLE_VALUE) return false;
    FindClose(search);
    return true;
}

}  // namespace platform
