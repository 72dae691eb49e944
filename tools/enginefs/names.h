#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <engine/filesystem/contract.h>

struct CloseFile {
    void operator()(SFsFile* file) const { fs::close(file); }
};
using FilePtr = std::unique_ptr<SFsFile, CloseFile>;

/// The merged, sorted names of the files in `dir`; "" is the root.
std::vector<std::string> list_files(const std::string& dir, const std::string& mask, bool recursive);

/// Every name that the file system holds.
std::vector<std::string> list_everything();

/// Whether the directory index holds a directory of this name.
bool is_directory(const std::string& name);

/// Names find files by their ends: "one.txt" finds "levels/one.txt". That is fine for reading, but what changes a file
/// asks this first: false, with a word on standard error, when the name finds a file of another name.
bool names_itself(const std::string& name);

/// What can be told of a file without reading it.
struct FileFacts {
    bool found = false;
    std::uint64_t size = 0;
    bool size_known = false;
    std::string time;  // "" when the source keeps none
};
FileFacts facts_of(const std::string& name);

/// `text` with ASCII letters lower-cased.
std::string lower_case(std::string text);

/// The name as the library holds it: "/" separators, dots resolved, lower case.
std::string normalised(const std::string& name);
