#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <engine/filesystem.h>
#include <engine/filesystem/comfort.h>

#include "report.h"
#include "terminal.h"

// What names stand for: which files and sources, and what the disk calls them.

inline constexpr std::size_t longest_path = 259;  // of a native path, in bytes

/// `text` with ASCII letters lower-cased.
std::string lower_case(std::string text);

/// The name as the library holds it: "/" separators, dots resolved, lower case unless `keep_case`.
std::string normalised(const std::string& name, bool keep_case = false);

/// The full form of a path as somebody typed it, with "/" separators, and none at its end.
std::string full_native_path(const std::string& path);

/// Where part `number` of a pack lies that was split; 1 is the pack itself.
std::string part_of(const std::string& pack, std::size_t number);

/// Whether a name as the library holds it matches a pattern: "?" stands for a character and "*" for any number of them,
/// neither for a "/"; "**" for any number with it, and "**/" also for no directory.
bool matches(std::string_view pattern, std::string_view name);
bool is_pattern(const std::string& text);

/// The same for a name in a tree, in any case. A pattern without "/" is held against each part of the name, one with it
/// against the whole and against each directory that the name lies in: "*.tga", "textures" and "maps/one*" choose what
/// one thinks of.
bool selects(const std::string& pattern, const std::string& name);

/// The sources, or those that hold a file of this name, in the order in which they are asked.
std::vector<SFsSourceInfo> all_sources();
std::vector<SFsSourceInfo> holders_of(const std::string& name, FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE);

/// Where a source lies; "" for the disk itself.
std::string place_of(const SFsSourceInfo& source);

/// Where on the disk the file lies, as the disk spells it; "" when it lies in a pack or nowhere.
std::string place_on_disk(const std::string& name);

/// How a command shows names.
struct NameForm {
    bool spelling = false;  // as the disk spells them
    bool native = false;    // their places on the disk, or in the pack
};
std::string told_name(const std::string& name, const NameForm& form);

/// The merged, sorted names of the files in `dir`; "" is the root, null everywhere.
std::vector<std::string> list_files(const char* dir = nullptr, const char* mask = nullptr, bool recursive = true);

/// The names, with a pattern replaced by the files that match it. A name that a file has is no pattern. False, with a word
/// on standard error, when a pattern matches nothing.
bool expand(std::vector<std::string>& names);

/// Calls `run` for each item, until Ctrl-C is remembered, of which is told. False then, or when a call answered so.
template <class Items, class Run>
bool for_all(const Items& items, const Run& run) {
    bool good = true;
    for (const auto& item : items) {
        if (Interruption::requested()) return fail("interrupted", "the rest is as it was");
        good = run(item) && good;
    }
    return good;
}

/// Calls `run` for each of the files that names and patterns stand for. False when a pattern matches nothing, or a call
/// answered so.
bool for_each_file(std::vector<std::string> names, const std::function<bool(const std::string&)>& run);

/// The same for files that get a new name, which is the last of `names`, or, in the directory that it names, what `rename`
/// makes of their own.
struct FromTo {
    std::string from, to;
};
using Rename = std::string (*)(const std::string&);
bool for_each_target(std::vector<std::string> names, const std::function<bool(const FromTo&)>& run, Rename rename);

/// Whether a source other than the disk itself holds a file of this whole name.
bool is_listed(const std::string& name);

/// Whether the directory index holds a directory of this name.
bool is_indexed(const std::string& name);

/// The same, or whether the disk has one of this full path.
bool is_directory(const std::string& name);

/// Says that nothing holds a file of this name, or that it is a directory. Returns false.
bool fail_not_held(const std::string& name, const std::string& if_directory = "it is a directory");

/// Names find files by their ends ("one.txt" finds "levels/one.txt"), in any case, and below the current directory. That
/// is fine for reading, but what changes a file asks this first: false, with a word on standard error, when the name finds
/// another file than one would think.
bool names_itself(const std::string& name);

/// Whether a file is held by its own name, in a source that can be written to; otherwise false, with a word on standard
/// error.
bool can_change(const std::string& name, const std::string& if_directory = "it is a directory");

/// Where the disk holds a file of just this spelling while the name finds one that differs in case; "" otherwise.
std::string exact_spelling(const std::string& name);
