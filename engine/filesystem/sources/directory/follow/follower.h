#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/filesystem/sources/directory/mount/state.h"
#include "engine/filesystem/watch/follower.h"
#include "engine/platform/directories.h"

class CWin32_dir;

namespace fs {

/// Follows the disk for a directory source: follower.cpp hears events and looks at what they name, reading.cpp lists
/// directories that came or went, apply.cpp brings the table to what was found.
///
/// Words: a *mark* is a name that waits to be looked at; a *marked directory* is to be listed. Paths are relative to the
/// native root; those of directories end in "/" ("" is the root).
/// Invariant: a directory is watched before it is listed, so that no name slips in between.
class DirectoryFollower final : public Follower {
public:
    DirectoryFollower(CWin32_dir& source, DirectoryState& state) : source_(source), state_(state) {}
    ~DirectoryFollower() override { unwatch(""); }

    bool begin(Watches& watches) override;
    void note(const std::string& dir, const platform::WatchEvent& event, std::int64_t now) noexcept override;
    bool is_marked() const override {
        return !marks_.empty() || !directory_marks_.empty() || is_to_be_read_ || is_root_gone_;
    }
    bool prepare(std::int64_t now, std::int64_t quiet) override;
    bool is_prepared() const override {
        return due_ != 0 || is_lost_ || is_to_be_mounted_ || !new_dirs_.empty() || !gone_dirs_.empty();
    }
    void apply(ChangeBatch& batch) override;

private:
    struct Spelling {
        std::string path;
        bool is_there = false;  // as it was looked at
    };
    struct Mark {
        std::int64_t first = 0;
        std::int64_t last = 0;
        bool is_written = false;  // its content may be another
        bool is_named = false;    // the name may have come or gone; otherwise the disk need not be asked
        bool is_new = false;      // when it was first touched there was no such name
        bool is_due = false;      // looked at, and to be applied
        std::vector<Spelling> spellings;
    };
    using Marks = std::map<std::string, Mark, std::less<>>;  // by lower-case path
    struct DirectoryMark {
        bool is_written = false;  // all that is in it may be other files
        bool is_deep = false;     // with all directories below it
    };
    using DirectoryMarks = std::map<std::string, DirectoryMark, std::less<>>;
    struct Reading;
    struct Visit;

    std::string native(std::string_view path) const { return root_ + std::string(path); }

    // follower.cpp
    void take_settings();
    void note_event(const std::string& dir, const platform::WatchEvent& event, std::int64_t now);
    Mark& mark(std::string path, std::int64_t when, bool is_written, bool is_new);
    static void add_spelling(Mark& mark, std::string path);
    void mark_directory(const std::string& dir, bool is_written, bool is_deep);
    void mark_above(std::string_view dir);
    bool watch_known(const std::string& dir);
    [[nodiscard]] bool watch(const std::string& dir);
    void unwatch(std::string_view dir) noexcept;
    bool find_root();
    bool look_at_due(std::int64_t now, std::int64_t quiet);
    bool look_at(Mark& mark);

    // reading.cpp
    bool read_directories(std::int64_t when);
    void visit(Reading& reading, Visit visit);
    void enter(Reading& reading, const Visit& visit, const platform::DirectoryListing& listing);
    void compare(Reading& reading);
    void lose(Reading& reading, const std::string& dir);
    bool follows(std::string_view link);

    // apply.cpp
    void apply_directories(ChangeBatch& batch);
    bool apply_mark(ChangeBatch& batch, const std::string& name, const Mark& mark);
    std::vector<std::uint32_t> held_files(std::string_view name) const;
    bool is_spelled(std::uint32_t file, std::string_view path) const;
    bool is_named(const Mark& mark, std::uint32_t file) const;
    std::vector<std::string> wanted_spellings(const std::vector<std::uint32_t>& held, const Mark& mark) const;
    bool replace(const std::vector<std::uint32_t>& held, const std::vector<std::string>& wanted);
    void mount_again(ChangeBatch& batch);

    CWin32_dir& source_;
    DirectoryState& state_;  // touched under the registry's lock alone
    Watches* watches_ = nullptr;

    // What the state says, for use without the lock.
    std::string root_;
    std::string start_;
    bool is_recursive_ = false;
    std::uint32_t reads_ = 0;

    std::map<std::string, std::int64_t, std::less<>> directories_;  // known ones, with their watches (-1: none)
    std::set<std::pair<std::uint64_t, std::uint64_t>> linked_;      // as MountedNames has them
    Marks marks_;
    Mark* latest_ = nullptr;  // of them: what an event named last, which the next often names once more
    DirectoryMarks directory_marks_;
    std::vector<std::string> new_dirs_;   // to be entered in the tree
    std::vector<std::string> gone_dirs_;  // in lower case, to be taken out
    std::size_t due_ = 0;
    bool is_to_be_read_ = false;  // all of it
    bool is_root_gone_ = false;
    bool is_to_be_mounted_ = false;
    bool is_lost_ = false;  // LOST is to be told
};

}  // namespace fs
