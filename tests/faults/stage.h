#pragma once

#include <engine/filesystem.h>

#include <map>
#include <string>

namespace test {

/// Names below the stage's folder, and what the files hold.
using Tree = std::map<std::string, std::string>;

/// A folder with a known tree, and the library over it: a root, a second directory and a pack.
///
///   root/       save.txt  levels/one.txt  levels/two.txt  deep/er/three.txt
///   more/       extra.txt
///   base.pak    packed.txt (deflated)  stored.bin (stored)
class Stage {
public:
    explicit Stage(std::string folder);

    /// Empties the folder and builds the tree anew; nothing is mounted.
    void build();
    /// fs::init and both further sources; with a place for recorded listings when asked.
    bool mount(bool recording = false);
    void unmount();

    std::string operator/(const char* name) const { return folder_ + "/" + name; }
    // The same for what runs while memory may be missing, so that nothing but the library meets the fault.
    const std::string root, more, pack, new_pack, save, cache;
    /// The bytes of a file of the disk; "(none)" when there is none.
    std::string on_disk(const char* name) const;
    /// All files of the disk, and its directories with a "/" at their end.
    Tree disk() const;
    /// Of the disk's files, one that somebody still has open; "" when there is none.
    std::string left_open() const;

private:
    std::string folder_;
};

/// What a scenario leaves on the disk when nothing fails: what it may leave is held against that.
struct Outcome {
    Tree before, after;
    std::string half_made;
    bool bytes_vary = false;

    /// "" or what is wrong with the disk, or with what the library answers about it.
    std::string check(const Stage& stage, bool answer) const;
};

/// What the stage's files hold.
const Tree& stage_tree();
/// A file's bytes as the library answers them; "(none)" when it does not.
std::string load(const char* name);

}  // namespace test
