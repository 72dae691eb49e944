#pragma once

#include <map>
#include <string>
#include <vector>

#include "globs.h"
#include "terminal.h"
#include "tree.h"

/// Looks for all that a pack of a tree would lack or could not hold, before anything is written, and says each with its
/// reason on standard error.
class PackCheck {
public:
    PackCheck(const Tree& tree, const Globs& globs) : tree_(tree), globs_(globs) {}

    /// Looks for what lies in `dir` on the disk and is not shown where that is mounted.
    void look_for_unshown(const std::string& dir);
    /// Looks at the files that go in, and adds up their bytes.
    void look_at(const std::vector<std::string>& names, const std::string& where);

    /// Of what was said: all of it, and what no pack can be made with.
    std::size_t findings() const { return findings_; }
    std::size_t errors() const { return errors_; }
    std::uint64_t total_bytes() const { return total_bytes_; }

private:
    void walk(const std::filesystem::path& dir, const std::string& name);
    void look_at_entry(const std::filesystem::directory_entry& entry, const std::string& name);
    void look_at_file(const std::string& path, const std::string& name);
    void tell(const std::string& path, const std::string& reason);
    void tell_error(const std::string& path, const std::string& reason);

    const Tree& tree_;
    const Globs& globs_;
    std::size_t root_length_ = 0;
    std::map<std::string, std::string> seen_{};  // paths of files by their names in lower case
    std::size_t findings_ = 0;
    std::size_t errors_ = 0;
    std::uint64_t total_bytes_ = 0;
    Progress walked_{"look at the directory", tree_.names().size(), false};
};
