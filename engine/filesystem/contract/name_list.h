#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include <engine/filesystem/contract/names.h>

namespace fs {

/// `dir` followed by `name` in a block of the C allocator that has room for `room` bytes at least. Null without memory.
char* joined_name(std::string_view dir, std::string_view name, std::size_t room = 0);

/// A new node that holds such a name, linked before `next`. Null without memory.
FS_NAME* new_name(std::string_view dir, std::string_view name, FS_NAME* next, std::size_t room = 0);

struct FreeNames {
    void operator()(FS_NAME* names) const { free_names(names); }
};
/// A list that is freed at the end.
using NameList = std::unique_ptr<FS_NAME, FreeNames>;

/// Puts a name in front of the list. May throw std::bad_alloc, and then changes nothing.
void prepend(NameList& list, std::string_view dir, std::string_view name, std::size_t room = 0);

/// Whether the whole of `name` matches `mask`: "*" any run of characters, "?" any one; ASCII letters in any case. A
/// null or empty mask matches every name.
bool name_matches(std::string_view name, const char* mask);

/// Whether the extension of `name`, from the last "." on, is `ext`; null is that of every name.
bool has_extension(std::string_view name, const char* ext);

/// Whether a file of directory `held` (ending in "/" or empty) answers a search in `dir`: null any; else without regard
/// to one trailing "/" in `dir`, `held` must be that directory or, with `below`, lie below it. Bytes are compared.
bool directory_answers(std::string_view held, const char* dir, bool below);
/// Whether `text` stands in a file's directory, whose last "/" takes no part.
inline bool directory_contains(std::string_view held, std::string_view text) {
    return held.substr(0, held.empty() ? 0 : held.size() - 1).find(text) != std::string_view::npos;
}

}  // namespace fs
