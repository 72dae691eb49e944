#pragma once

#include <string>
#include <string_view>

#include <engine/filesystem/contract/source.h>
#include <engine/filesystem/watch.h>

namespace fs {

/// Tells what is taken up of one source, under the registry's exclusive lock.
class ChangeBatch {
public:
    /// `is_tree_new` is set when the source's tree of directories has changed.
    ChangeBatch(CFSSource& source, ztl::vector<SFsChange>& out, bool& is_tree_new);

    /// Tells a change of a name that the source holds at the time of the call, be it for the last time or by what replaces
    /// it. Throws std::bad_alloc, and then nothing is told.
    void add(SFsChange::KIND kind, std::string_view name);
    void add_lost();
    /// Told before the tree changes, so that a change that stays half done is not forgotten.
    void tree_changes() { is_tree_new_ = true; }

private:
    bool is_winner(const std::string& name) noexcept;

    CFSSource& source_;
    ztl::vector<SFsChange>& out_;
    bool& is_tree_new_;
    std::string path_;
    std::string_view prefix_;
};

}  // namespace fs
