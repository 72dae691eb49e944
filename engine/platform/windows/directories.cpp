#include "engine/platform/directories.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>
#include <optional>
#include <string_view>

#include "engine/platform/windows/native_path.h"
#include "engine/platform/windows/ordered_fault.h"

namespace platform {

namespace {

class Search {
public:
    Search(const char* pattern, WIN32_FIND_DATAA& item) : handle_(open(pattern, item)) {}
    Search(const Search&) = delete;
    Search& operator=(const Search&) = delete;
    ~Search() {
        if (valid()) FindClose(handle_);
    }
    bool valid() const { return handle_ != INVALID_HANDLE_VALUE; }
    bool next(WIN32_FIND_DATAA& item) { return FindNextFileA(handle_, &item) != 0; }

private:
    // Large fetches, and listings without short names, exist from version 6.1 on.
    static bool has_large_fetch() {
        OSVERSIONINFOEXW wanted{};
        wanted.dwOSVersionInfoSize = sizeof wanted;
        wanted.dwMajorVersion = 6;
        wanted.dwMinorVersion = 1;
        DWORDLONG conditions = 0;
        for (const DWORD part : {VER_MAJORVERSION, VER_MINORVERSION, VER_SERVICEPACKMAJOR}) {
            conditions = VerSetConditionMask(conditions, part, VER_GREATER_EQUAL);
        }
        return VerifyVersionInfoW(&wanted, VER_MAJORVERSION | VER_MINORVERSION | VER_SERVICEPACKMAJOR, conditions) != 0;
    }
    static HANDLE open(const char* pattern, WIN32_FIND_DATAA& item) {
        if (!has_large_fetch()) return FindFirstFileA(pattern, &item);
        return FindFirstFileExA(pattern, FindExInfoBasic, &item, FindExSearchNameMatch, nullptr,
                                FIND_FIRST_EX_LARGE_FETCH);
    }

    HANDLE handle_;
};

bool is_link_item(const WIN32_FIND_DATAA& item) {
    if ((item.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return false;
    return item.dwReserved0 == IO_REPARSE_TAG_SYMLINK || item.dwReserved0 == IO_REPARSE_TAG_MOUNT_POINT;
}

bool join(char (&out)[path_buffer_size + 1], const NativePath& directory, const char* name) {
    const char last = directory.text()[directory.length() - 1];
    const char* const slash = last == '/' || last == '\\' ? "" : "/";
    const int length = std::snprintf(out, sizeof out, "%s%s%s", directory.text(), slash, name);
    return length >= 0 && static_cast<std::size_t>(length) < sizeof out;
}

// What a link leads to decides what it is; false when it leads nowhere.
bool follow_link(const NativePath& directory, const char* name, bool& is_directory) {
    char path[path_buffer_size + 1];
    BY_HANDLE_FILE_INFORMATION record{};
    if (!join(path, directory, name)) return false;
    const Handle handle(open_for_query(path));
    if (!handle.valid() || !GetFileInformationByHandle(handle.get(), &record)) return false;
    is_directory = has_bits(record.dwFileAttributes, FILE_ATTRIBUTE_DIRECTORY);
    return true;
}

void add_item(const NativePath& directory, const WIN32_FIND_DATAA& item, DirectoryListing& out) {
    const std::string_view name = item.cFileName;
    // A name that the narrow code page cannot spell comes with question marks, and nobody could open it.
    if (name == "." || name == ".." || name.find('?') != std::string_view::npos) return;
    if (has_bits(item.dwFileAttributes, FILE_ATTRIBUTE_DEVICE)) return;
    bool is_directory = has_bits(item.dwFileAttributes, FILE_ATTRIBUTE_DIRECTORY);
    const bool is_link = is_link_item(item);
    if (is_link && !follow_link(directory, item.cFileName, is_directory)) return;
    out.add(name.data(), name.size(), is_directory, is_link, has_bits(item.dwFileAttributes, FILE_ATTRIBUTE_OFFLINE));
}

bool read_items(const NativePath& directory, DirectoryListing& out) {
    char pattern[path_buffer_size + 1];
    if (!join(pattern, directory, "*")) return fail(Failure::PATH_TOO_LONG);
    WIN32_FIND_DATAA item{};
    Search search(pattern, item);
    if (!search.valid())
        return GetLastError() == ERROR_FILE_NOT_FOUND || fail_last();  // an empty root has not even "."
    do add_item(directory, item, out);
    while (search.next(item));
    return GetLastError() == ERROR_NO_MORE_FILES || fail_last();
}

std::optional<BY_HANDLE_FILE_INFORMATION> query_directory(const char* path) {
    const NativePath native(path);
    if (!native.valid()) return std::nullopt;
    BY_HANDLE_FILE_INFORMATION record{};
    const Handle handle(open_for_query(native.text()));
    if (!handle.valid() || !GetFileInformationByHandle(handle.get(), &record)) {
        fail_last();
        return std::nullopt;
    }
    if (has_bits(record.dwFileAttributes, FILE_ATTRIBUTE_DIRECTORY)) return record;
    fail(Failure::NOT_FOUND, ERROR_DIRECTORY);
    return std::nullopt;
}

// A path under construction, component by component.
class SpelledPath {
public:
    explicit SpelledPath(std::string_view start) { append(start); }
    bool fits() const { return fits_; }
    const char* text() const { return text_; }
    std::size_t length() const { return length_; }
    void shorten(std::size_t length) { text_[length_ = length] = '\0'; }
    void append(std::string_view part) {
        fits_ = fits_ && part.size() < sizeof text_ - length_;
        if (!fits_) return;
        std::memcpy(text_ + length_, part.data(), part.size());
        shorten(length_ + part.size());
    }

private:
    char text_[path_buffer_size] = "";
    std::size_t length_ = 0;
    bool fits_ = true;
};

// Appends one component under the disk's spelling, while everything before it exists.
void append_component(SpelledPath& out, std::string_view name, bool& exists) {
    const std::size_t before = out.length();
    out.append(name);
    WIN32_FIND_DATAA item{};
    const bool named = !name.empty() && name != "." && name != "..";
    if (!named || !exists || !out.fits()) return;
    exists = find_item(out.text(), item);
    if (!exists) return;
    out.shorten(before);
    out.append(item.cFileName);
}

// What comes before the first component that can be looked for: a drive, a server and its share, slashes.
std::size_t prefix_length(std::string_view path) {
    const auto is_slash = [&](std::size_t at) { return at < path.size() && (path[at] == '/' || path[at] == '\\'); };
    std::size_t at = path.size() >= 2 && path[1] == ':' ? 2 : 0;
    if (at == 0 && is_slash(0) && is_slash(1)) {
        const std::size_t share = path.find_first_of("/\\", 2);
        at =
            share == std::string_view::npos ? path.size() : std::min(path.find_first_of("/\\", share + 1), path.size());
    }
    while (is_slash(at)) ++at;
    return at;
}

}  // namespace

bool list_directory(const PathAt& path, DirectoryListing& out) {
    out.clear();
    const NativePath native(path.full);
    if (!native.valid() || meets_fault(FaultPoint::LIST)) return false;
    try {
        const bool complete = read_items(native, out);
        out.sort();
        return complete;
    } catch (const std::bad_alloc&) {
        return fail(Failure::OTHER, ERROR_NOT_ENOUGH_MEMORY);
    }
}

bool get_directory_id(const char* path, DirectoryId& out) {
    const auto record = query_directory(path);
    if (!record) return false;
    out = {.device = record->dwVolumeSerialNumber,
           .inode = std::uint64_t{record->nFileIndexHigh} << 32 | record->nFileIndexLow};
    return true;
}

bool get_directory_time(const PathAt& path, std::int64_t& out) {
    const auto record = query_directory(path.full);
    if (!record) return false;
    out = to_file_time(record->ftLastWriteTime);
    return true;
}

bool create_directory(const char* path) {
    const NativePath native(path, NativePath::Use::NEW);
    if (!native.valid() || meets_fault(FaultPoint::CREATE_DIRECTORY)) return false;
    if (CreateDirectoryA(native.text(), nullptr)) return true;
    // Of a drive the system says "access denied".
    const DWORD code = GetLastError();
    const bool exists = code == ERROR_ACCESS_DENIED && attribute_bits(native.text()) != INVALID_FILE_ATTRIBUTES;
    return exists ? fail(Failure::ALREADY_EXISTS, code) : fail_os(code);
}

bool remove_directory(const char* path) {
    const NativePath native(path);
    if (!native.valid() || meets_fault(FaultPoint::REMOVE)) return false;
    return RemoveDirectoryA(native.text()) || fail_last();
}

bool is_link(const char* path) {
    const NativePath native(path);
    WIN32_FIND_DATAA item{};
    return native.valid() && has_bits(attribute_bits(native.text()), FILE_ATTRIBUTE_REPARSE_POINT) &&
           find_item(native.text(), item) && is_link_item(item);
}

bool resolve_case(const char* path, char* out) {
    const NativePath native(path);
    if (!native.valid()) return false;
    std::string_view rest(native.text(), native.length());
    const std::size_t prefix = prefix_length(rest);
    SpelledPath spelled(rest.substr(0, prefix));
    rest.remove_prefix(prefix);
    bool exists = true;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find_first_of("/\\"), rest.size());
        append_component(spelled, rest.substr(0, end), exists);
        spelled.append(rest.substr(end, 1));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    spelled.append(path + native.length());  // slashes at the end stay
    if (!spelled.fits()) return fail(Failure::PATH_TOO_LONG);
    std::memcpy(out, spelled.text(), spelled.length() + 1);
    return true;
}

}  // namespace platform
