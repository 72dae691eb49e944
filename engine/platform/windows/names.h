#pragma once

#include <string_view>

#include "engine/platform/files.h"
#include "engine/platform/windows/system.h"

namespace platform {

/// A caller's path made ready for the system: checked, wide, and without slashes at its end (but "/" and "c:/" stay).
///
/// The system takes much for a file that is none: devices ("nul.txt", "//./x"), streams ("a:b"), names whose trailing
/// dots and blanks it drops. Nothing of that is ever handed to it, so a path means the same on both systems.
class NativePath {
public:
    enum class Use { EXISTING, NEW };  // a name that cannot be is "not found", or invalid for a new file

    /// Not valid, with the failure recorded, when the system could hold no such path.
    explicit NativePath(const char* path, Use use = Use::EXISTING);

    bool valid() const { return length_ != 0; }
    const wchar_t* text() const { return text_; }
    std::wstring_view view() const { return {text_, length_}; }

private:
    wchar_t text_[path_buffer_size];
    std::size_t length_ = 0;
};

bool ends_in_slash(const char* path);

/// Opens a file or directory for asking about it alone, links followed; it shares with everybody.
Handle open_for_query(const wchar_t* path);
/// Asks about a file or directory, links followed. False, with the failure recorded, when it cannot be asked.
bool query(const wchar_t* path, BY_HANDLE_FILE_INFORMATION& out);
inline FileId id_of(const BY_HANDLE_FILE_INFORMATION& record) {
    return {.device = record.dwVolumeSerialNumber,
            .inode = std::uint64_t{record.nFileIndexHigh} << 32 | record.nFileIndexLow};
}

/// The record of one item of a directory: its spelling, and the item itself where it is a link.
bool find_item(const wchar_t* path, WIN32_FIND_DATAW& item);

/// The attributes of a path; INVALID_FILE_ATTRIBUTES when nothing is there. Links are not followed.
inline DWORD attribute_bits(const wchar_t* path) { return GetFileAttributesW(path); }
inline bool has_bits(DWORD attributes, DWORD bits) {
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & bits) != 0;
}
inline bool is_directory(DWORD attributes) { return has_bits(attributes, FILE_ATTRIBUTE_DIRECTORY); }

}  // namespace platform
