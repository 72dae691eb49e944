#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <engine/filesystem.h>
#include <engine/filesystem/comfort.h>

inline constexpr std::uint64_t failed = ~std::uint64_t{0};  // how the library answers for a size it cannot tell
inline constexpr std::size_t longest_path = 259;            // of a native path, in bytes

/// Opens a file for reading; null, with a word on standard error, when it cannot be opened.
fs::file_ptr open_file(const std::string& name);

/// Takes bytes one after another; false stops whoever gives them.
using TakeBytes = std::function<bool(const char* data, std::uint64_t size)>;

/// Reads an open file from its position to its end. False when `take` says so, or, with a word on standard error, when
/// the bytes cannot be read or are not what the source has recorded of them.
bool read_to_end(SFsFile* file, const std::string& name, const TakeBytes& take);

/// The sources, or those that hold a file of this name, in the order in which they are asked.
std::vector<SFsSourceInfo> all_sources();
std::vector<SFsSourceInfo> holders_of(const std::string& name);

/// The merged, sorted names of the files in `dir`; "" is the root, null everywhere.
std::vector<std::string> list_files(const char* dir = nullptr, const char* mask = nullptr, bool recursive = true);

/// Whether the directory index holds a directory of this name.
bool is_directory(const std::string& name);

/// Says that nothing holds a file of this name, or that it is a directory. Returns false.
bool fail_not_held(const std::string& name, const std::string& if_directory = "it is a directory");

/// Names find files by their ends: "one.txt" finds "levels/one.txt". That is fine for reading, but what changes a file
/// asks this first: false, with a word on standard error, when the name finds a file of another name.
bool names_itself(const std::string& name);

/// Where on the disk the file lies, as the disk spells it; "" when it lies in a pack or nowhere.
std::string place_on_disk(const std::string& name);

/// "YYYY-MM-DD HH:MM:SS", in UTC, of a file's last change; "" when its source keeps none.
std::string time_of(const std::string& name);

/// `text` with ASCII letters lower-cased.
std::string lower_case(std::string text);

/// The name as the library holds it: "/" separators, dots resolved, lower case.
std::string normalised(const std::string& name);

/// The full form of a path as somebody typed it, with "/" separators.
std::string full_native_path(const std::string& path);

/// The lines of a text file on the disk, empty ones left out, behind those that are there already. False, with a word on
/// standard error, when it cannot be read.
bool read_lines(const std::string& path, std::vector<std::string>& lines);
