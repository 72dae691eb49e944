#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "engine/filesystem/sources/directory/mount/state.h"
#include "engine/filesystem/watch/watches.h"
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
    struct Spelling {
        std::string path;
        bool is_there = false;  // as it was looked at
    };
    struct Mark {
        Touches touches;
        bool is_written = false;  // its content may be another
        bool is_named = false;    // the name may have come or gone; otherwise the disk need not be asked
        bool is_new = false;      // when it was first touched there was no such name
        std::vector<Spelling> spellings;
    };
    using Marks = std::unordered_map<std::string, Mark>;  // by lower-case path
    enum class Extent : std::uint8_t {                    // of a marked directory; each includes those before
        ITSELF,
        BELOW,    // all directories below it
        REPLACED  // what is in them may be other files
    };
    using DirectoryMarks = std::map<std::string, Extent>;
    using DirectorySet = std::set<std::string, std::less<>>;
    struct Reading;
    struct Visit;

    static bool is_absent(platform::Failure failure) {
        return failure == platform::Failure::NOT_FOUND || failure == platform::Failure::PATH_TOO_LONG;
    }
    std::string native(std::string_view path) const { return root_ + std::string(path); }

    // follower.cpp
    void take_settings();
    void note_event(const std::string& dir, const platform::WatchEvent& event, std::int64_t now);
    void mark(std::string path, Kind kind, std::int64_t when);
    static void add_spelling(Mark& mark, std::string path);
    void mark_directory(const std::string& dir, Extent extent);
    void mark_above(std::string_view dir);
    bool watch_known(const std::string& dir);
    [[nodiscard]] bool watch(const std::string& dir);
    void find_root();
    bool look_at_due(std::int64_t now, std::int64_t quiet);
    bool look_at(Mark& mark);

    // reading.cpp
    bool read_directories(std::int64_t when);
    void visit(Reading& reading, const Visit& visit);
    bool is_entered(Reading& reading, const Visit& visit, const std::string& path);
    void enter(Reading& reading, const Visit& visit, const platform::DirectoryListing& listing);
    void compare(Reading& reading);
    void lose(Reading& reading, const std::string& dir);
    DirectorySet known_in(const std::string& dir) const;
    bool follows(std::string_view link);

    // apply.cpp
    void mount_again(ChangeBatch& batch);
    void apply_directories(ChangeBatch& batch);
    bool apply_mark(ChangeBatch& batch, const std::string& name, const Mark& mark);
    void replace(ChangeBatch& batch, const std::string& name, const std::vector<std::uint32_t>& held,
                 const std::vector<std::string>& paths);
    std::vector<std::uint32_t> held_files(std::string_view name) const;
    std::string spelled_path(std::uint32_t file) const;

    CWin32_dir& source_;
    DirectoryState& state_;  // touched under the registry's lock alone
    Watches* watches_ = nullptr;

    // What the state says, for use without the lock.
    std::string root_;
    std::string start_;
    bool is_recursive_ = false;
    std::uint32_t reads_ = 0;

    std::map<std::string, Watches::Watch, std::less<>> directories_;  // those that are known; not all can be watched
    std::set<std::pair<std::uint64_t, std::uint64_t>> linked_;        // as MountedNames has them
    Marks marks_;
    DirectoryMarks directory_marks_;
    bool is_to_be_read_ = false;  // all of it
    bool is_root_gone_ = false;

    // What is to be applied.
    std::vector<Marks::value_type*> due_;  // marks that were looked at, in the order of names
    std::vector<std::string> new_dirs_;    // to be entered in the tree
    DirectorySet gone_dirs_;               // in lower case, to be taken out
    bool is_to_be_mounted_ = false;
    bool is_lost_ = false;  // LOST is to be told
};

}  // namespace fs
