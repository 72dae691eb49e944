// Directories and links: listing, making, removing, and where they lead.
#include "engine/platform/directories.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "engine/platform/windows/names.h"

namespace platform {

namespace {

struct CloseSearch {
    void operator()(HANDLE search) const { FindClose(search); }
};

bool is_link_item(const WIN32_FIND_DATAW& item) {
    if ((item.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return false;
    return item.dwReserved0 == IO_REPARSE_TAG_SYMLINK || item.dwReserved0 == IO_REPARSE_TAG_MOUNT_POINT;
}

std::wstring join(std::wstring_view directory, std::wstring_view name) {
    std::wstring path(directory);
    if (!path.empty() && path.back() != L'/' && path.back() != L'\\') path += L'/';
    return path.append(name);
}

/// False, with the failure recorded, when the item could not be looked at.
bool add_item(std::wstring_view directory, const WIN32_FIND_DATAW& item, Links links, DirectoryListing& out) {
    const std::wstring_view wide = item.cFileName;
    if (wide == L"." || wide == L".." || has_bits(item.dwFileAttributes, FILE_ATTRIBUTE_DEVICE)) return true;
    // A name that is too long, or no text, could not be asked for.
    char name[path_buffer_size];
    const std::size_t length = to_narrow(wide, name, sizeof name);
    if (length == 0) return true;
    DirectoryItem kind{.is_directory = is_directory(item.dwFileAttributes),
                       .is_link = is_link_item(item),
                       .is_offline = has_bits(item.dwFileAttributes, FILE_ATTRIBUTE_OFFLINE)};
    if (BY_HANDLE_FILE_INFORMATION behind{}; kind.is_link && query(join(directory, wide).c_str(), behind)) {
        kind.is_directory = is_directory(behind.dwFileAttributes);
    } else if (kind.is_link) {
        if (!leads_nowhere(last_error().failure)) return false;
        if (links == Links::FOLLOWED) return true;
    }
    out.add(name, length, kind);
    return true;
}

/// What comes before the first component that can be looked for: a drive, a server and its share, slashes.
std::size_t prefix_length(std::wstring_view path) {
    const auto is_slash = [&](std::size_t at) { return at < path.size() && (path[at] == '/' || path[at] == '\\'); };
    std::size_t at = path.size() >= 2 && path[1] == ':' ? 2 : 0;
    if (at == 0 && is_slash(0) && is_slash(1)) {
        const std::size_t share = path.find_first_of(L"/\\", 2);
        at = share == std::wstring_view::npos ? path.size()
                                              : std::min(path.find_first_of(L"/\\", share + 1), path.size());
    }
    while (is_slash(at)) ++at;
    return at;
}

enum class Respell : std::uint8_t { ALL, SHORT_NAMES };

/// The path with those components that exist under the disk's spelling, which is long also where a short one is asked
/// for ("PROGRA~1").
std::wstring respell(std::wstring_view path, Respell which) {
    const std::size_t prefix = prefix_length(path);
    std::wstring spelled(path.substr(0, prefix));
    bool exists = true;
    for (std::size_t at = prefix; at < path.size();) {
        const std::size_t end = std::min(path.find_first_of(L"/\\", at), path.size());
        const std::wstring_view name = path.substr(at, end - at);
        const std::size_t before = spelled.size();
        spelled.append(name);
        const bool is_name = !name.empty() && name != L"." && name != L"..";
        WIN32_FIND_DATAW item{};
        if (is_name && exists && (which == Respell::ALL || name.find(L'~') != std::wstring_view::npos)) {
            exists = find_item(spelled.c_str(), item);
            if (exists) spelled.replace(before, name.size(), item.cFileName);
        }
        spelled.append(path.substr(end, 1));
        at = end + 1;
    }
    return spelled;
}

bool respell(const char* path, char* out, Respell which) try {
    wchar_t wide[path_buffer_size];
    char text[path_buffer_size];
    if (!NativePath(path).valid()) return false;
    const std::wstring spelled = respell({wide, to_wide(path, wide, path_buffer_size)}, which);
    const std::size_t length = to_narrow(spelled, text, sizeof text);
    if (length == 0) return fail(Failure::PATH_TOO_LONG);
    std::memcpy(out, text, length + 1);
    return true;
} catch (const std::bad_alloc&) {
    return fail_os(ERROR_NOT_ENOUGH_MEMORY);
}

}  // namespace

bool read_items(const PathAt& path, Links links, DirectoryListing& out) {
    const NativePath directory(path.full);
    if (!directory.valid()) return false;
    WIN32_FIND_DATAW item{};
    // Without short names, and in large pieces.
    const HANDLE found = FindFirstFileExW(join(directory.view(), L"*").c_str(), FindExInfoBasic, &item,
                                          FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH);
    // An empty root has not even ".".
    if (found == INVALID_HANDLE_VALUE) return GetLastError() == ERROR_FILE_NOT_FOUND || fail_last();
    const std::unique_ptr<void, CloseSearch> search(found);
    Error first{};  // of an item that could not be looked at
    do {
        if (!add_item(directory.view(), item, links, out) && first.failure == Failure::NONE) first = last_error();
    } while (FindNextFileW(found, &item));
    if (GetLastError() != ERROR_NO_MORE_FILES) return fail_last();
    return first.failure == Failure::NONE || fail(first.failure, first.os_code);
}

bool look_at(const char* path, DirectoryItem& out, char* name) try {
    const NativePath native(path);
    WIN32_FIND_DATAW item{};
    if (!native.valid() || meets_fault(FaultPoint::STAT)) return false;
    if (!find_item(native.text(), item)) return fail_last();
    DirectoryListing found;
    const std::wstring_view whole = native.view();
    if (!add_item(whole.substr(0, whole.find_last_of(L"/\\") + 1), item, Links::FOLLOWED, found)) return false;
    if (found.items().empty()) return fail(Failure::NOT_FOUND);
    found.sort();
    out = found.items().front();
    std::memcpy(name, out.name, out.length + std::size_t{1});
    out.name = "";
    return true;
} catch (const std::bad_alloc&) {
    return fail_os(ERROR_NOT_ENOUGH_MEMORY);
}

bool get_directory_id(const char* path, FileId& out) {
    const NativePath native(path);
    BY_HANDLE_FILE_INFORMATION record{};
    if (!native.valid() || !query(native.text(), record)) return false;
    out = id_of(record);
    return is_directory(record.dwFileAttributes) || fail_os(ERROR_DIRECTORY);
}

bool get_directory_times(const PathAt& path, DirectoryTimes& out) {
    const NativePath native(path.full);
    if (!native.valid() || meets_fault(FaultPoint::STAT)) return false;
    const Handle handle = open_for_query(native.text());
    FILE_BASIC_INFO record{};
    if (!handle || !GetFileInformationByHandleEx(handle.get(), FileBasicInfo, &record, sizeof record)) {
        return fail_last();
    }
    out = {.written = record.LastWriteTime.QuadPart, .changed = record.ChangeTime.QuadPart};
    return is_directory(record.FileAttributes) || fail_os(ERROR_DIRECTORY);
}

bool create_directory(const char* path) {
    const NativePath native(path, NativePath::Use::NEW);
    if (!native.valid() || meets_fault(FaultPoint::CREATE_DIRECTORY)) return false;
    if (CreateDirectoryW(native.text(), nullptr)) return true;
    // Of a drive the system says "access denied".
    const DWORD code = GetLastError();
    const bool exists = code == ERROR_ACCESS_DENIED && attribute_bits(native.text()) != INVALID_FILE_ATTRIBUTES;
    return exists ? fail(Failure::ALREADY_EXISTS, ERROR_ACCESS_DENIED) : fail_os(code);
}

bool remove_directory(const char* path) {
    const NativePath native(path);
    if (!native.valid() || meets_fault(FaultPoint::REMOVE)) return false;
    return RemoveDirectoryW(native.text()) || fail_last();
}

bool is_link(const char* path) {
    const NativePath native(path);
    WIN32_FIND_DATAW item{};
    return native.valid() && has_bits(attribute_bits(native.text()), FILE_ATTRIBUTE_REPARSE_POINT) &&
           find_item(native.text(), item) && is_link_item(item);
}

bool resolve_link(const char* path, char* out) {
    if (!is_link(path)) return resolve_case(path, out);
    const Handle handle = open_for_query(NativePath(path).text());
    if (!handle) return fail_last();
    wchar_t target[path_buffer_size];
    const std::wstring_view mark = L"\\\\?\\";  // before a path of any length; of another machine, with "UNC" behind it
    const DWORD length = GetFinalPathNameByHandleW(handle.get(), target, path_buffer_size, FILE_NAME_NORMALIZED);
    if (length <= mark.size() || length >= path_buffer_size) return fail(Failure::PATH_TOO_LONG);
    std::wstring_view found(target, length);
    found.remove_prefix(mark.size());
    if (found.starts_with(L"UNC\\")) {
        target[mark.size() + 2] = L'\\';
        found.remove_prefix(2);
    }
    return to_narrow(found, out, path_buffer_size) != 0 || fail(Failure::PATH_TOO_LONG);
}

bool resolve_case(const char* path, char* out) { return respell(path, out, Respell::ALL); }

bool expand_short_names(const char* path, char* out) { return respell(path, out, Respell::SHORT_NAMES); }

}  // namespace platform
