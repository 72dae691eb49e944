#pragma once

#include <engine/filesystem.h>

#include <cstdint>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace test {

/// Names below the stage's folder, and what the files hold.
using Tree = std::map<std::string, std::string>;

/// What the stage's files hold.
const Tree& stage_tree();

/// A folder with a known tree, and the library over it: a root, a second directory and a pack.
///
///   root/       save.txt  levels/one.txt  levels/two.txt  deep/er/three.txt
///   more/       extra.txt
///   base.pak    packed.txt (deflated)  stored.bin (stored)
class Stage {
public:
    explicit Stage(std::string where) : folder(std::move(where)) {}

    /// Empties the folder and builds the tree anew; nothing is mounted.
    void build();
    void write(const Tree& files) const;
    /// fs::init and both further sources; with a place for recorded listings when asked.
    bool mount(bool recording = false);
    void unmount() { fs::shutdown(); }

    std::string operator/(const char* name) const { return folder + "/" + name; }
    /// The bytes of a file of the disk; "(none)" when there is none.
    std::string on_disk(const char* name) const;
    /// All files of the disk, and its directories with a "/" at their end.
    Tree disk() const;
    /// Of the disk's files, one that somebody still has open; "" when there is none.
    std::string left_open() const;

    // Made beforehand for what runs while memory may be missing, so that nothing but the library meets the fault.
    const std::string folder, root = folder + "/root", more = folder + "/more", cache = folder + "/cache";
    const std::string pack = folder + "/base.pak", new_pack = folder + "/new.pak", save = root + "/save.txt";
};

inline void mounted(Stage& stage) { stage.mount(); }
inline std::string nothing_wrong(Stage&, bool) { return ""; }

/// What an exported family does while the disk or memory may fail. Whatever fails, each file is as before or as it would
/// be after success, and after success all are.
struct Scenario {
    const char* name;
    /// What may meet the fault. Its answer; for calls without one, whether fs::last_error stayed empty.
    std::function<bool(Stage&)> act;
    /// On a fresh stage, before anything fails.
    std::function<void(Stage&)> prepare = mounted;
    /// The file, or the directory with a "/" at its end, that a failure may leave half made.
    std::string half_made = {};
    /// "" or what else is wrong, after the fault, with the library still mounted. `answer` is what `act` said.
    std::function<std::string(Stage&, bool answer)> check = nothing_wrong;
    /// What may be half made differs from run to run, too; `check` judges it.
    bool bytes_vary = false;
    /// Whether, after a failure, the same again must succeed and pass the check with `answer` true.
    bool repeatable = true;
    /// A command of the tool: it says why on standard error.
    bool by_message = false;
    /// False: it lists directories by the standard library, which ends the program when it gets no memory.
    bool allocations = true;
};

inline void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

std::vector<Scenario> scenarios();
/// A row for each command of enginefs.
std::vector<Scenario> tool_scenarios();
/// What the last command said on standard error.
std::string tool_messages();

/// A file's bytes as the library answers them; "(none)" when it does not.
std::string load(const char* name);
/// "" when `found` is what was wanted, else a complaint.
std::string expect(const std::string& what, const std::string& found, const std::string& wanted);

}  // namespace test
