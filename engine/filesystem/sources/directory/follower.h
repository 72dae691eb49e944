#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "engine/filesystem/sources/directory/state.h"
#include "engine/filesystem/watch/watching.h"
#include "engine/platform/directories.h"

class CWin32_dir;

namespace fs {

/// Follows the disk for a directory source: follower.cpp hears events, looks at what they name and brings the table to what
/// was found; reading.cpp reads directories that came or went.
///
/// Words: a *mark* is a spelling of a name that waits to be looked at; a *marked directory* is to be read, with all that lies
/// below it. Paths are relative to the native root; those of directories end in "/" ("" is the root).
/// Invariant: a directory is watched before it is listed, so that no name slips in between.
class DirectoryFollower final : public Follower {
public:
    DirectoryFollower(CWin32_dir& source, DirectoryState& state) : source_(source), state_(state) {}

    bool begin(Watches& watches) override;
    void note(const std::string& dir, const platform::WatchEvent& event, std::int64_t now) noexcept override;
    bool is_marked() const override {
        return !marks_.empty() || !directory_marks_.empty() || is_to_be_read_ || is_root_gone_ || is_prepared();
    }
    bool prepare(std::int64_t now, std::int64_t quiet) override;
    bool is_prepared() const override {
        return !due_.empty() || is_lost_ || is_to_be_mounted_ || !new_dirs_.empty() || !gone_dirs_.empty();
    }
    void apply(ChangeBatch& batch) override;

private:
    using Kind = platform::WatchEvent::Kind;
    struct Mark {
        bool is_there = false;  // as it was looked at
        // Of the name; only in the first of its marks.
        Touches touches;
        bool is_written = false;  // its content may be another
        bool is_named = false;    // it may have come or gone; otherwise the disk need not be asked
        bool is_new = false;      // when it was first touched there was no such name
    };
    struct ByName {  // without regard to case
        bool operator()(std::string_view a, std::string_view b) const;
    };
    using Marks = std::multimap<std::string, Mark, ByName>;  // the spellings of one name are neighbours
    enum class Extent : std::uint8_t {                       // of what may be another in a directory
        NOTHING,
        NAMES,
        FILES  // those of the same names too
    };
    using DirectoryMarks = std::map<std::string, Extent, std::less<>>;
    using DirectorySet = std::set<std::string, std::less<>>;
    struct Reading;

    static bool is_absent(platform::Failure failure) {
        return failure == platform::Failure::NOT_FOUND || failure == platform::Failure::PATH_TOO_LONG;
    }
    std::string native(std::string_view path) const { return settings_.native_root.text + std::string(path); }

    void take_settings();
    void note_event(const std::string& dir, const platform::WatchEvent& event, std::int64_t now);
    void mark(std::string path, Kind kind, std::int64_t when);
    void mark_directory(std::string dir, Extent extent);
    bool watch_known(const std::string& dir);
    [[nodiscard]] bool watch(const std::string& dir);
    void find_root();
    Marks::iterator end_of_name(Marks::iterator mark);
    bool look_at_due(std::int64_t now, std::int64_t quiet);
    bool look_at(Marks::value_type& mark);

    bool read_directories(std::int64_t now);
    void mount_again(ChangeBatch& batch);
    void apply_directories(ChangeBatch& batch);
    bool apply_name(ChangeBatch& batch, Marks::iterator first, Marks::iterator last);
    void replace(ChangeBatch& batch, const std::string& name, const std::vector<std::uint32_t>& held,
                 const std::vector<std::string>& paths);

    CWin32_dir& source_;
    DirectoryState& state_;  // touched under the registry's lock alone
    Watches* watches_ = nullptr;
    DirectoryState settings_;  // of the state, for use without the lock; it has no names
    bool is_recursive_ = false;

    std::map<std::string, Watches::Watch, std::less<>> directories_;  // those that are known; not all can be watched
    bool may_have_links_ = true;                                      // to directories
    Marks marks_;
    DirectoryMarks directory_marks_;
    bool is_to_be_read_ = false;  // all of it
    bool is_root_gone_ = false;

    // What is to be applied.
    std::vector<Marks::iterator> due_;  // names that were looked at, in their order
    DirectorySet new_dirs_;             // to be entered in the tree
    DirectorySet gone_dirs_;            // in lower case, to be taken out
    bool is_to_be_mounted_ = false;
    bool is_lost_ = false;  // LOST is to be told
};

}  // namespace fs
