#include <set>
#include <string>
#include <string_view>

#include <engine/filesystem/access/open.h>
#include <engine/filesystem/access/search.h>

#include "engine/filesystem/c_interface/lists.h"
#include "engine/filesystem/contract/name_list.h"
#include "engine/filesystem/contract/path.h"
#include "engine/filesystem/registry/registry.h"

namespace {

using namespace fs::c;
using Names = std::set<std::string>;

void add_directories(Names& out, const fs::idir& below, const std::string& lead, bool recursive) {
    for (const fs::idir* child = below.first_child(); child != nullptr; child = child->next_sibling()) {
        const std::string name = lead + child->name();
        out.insert(name);
        if (recursive) add_directories(out, *child, name + "/", recursive);
    }
}

/// Adds what lies below `dir` in the index and in every source's tree, also of those that are not indexed. False when
/// none of them has it.
bool collect_directories(Names& out, std::string_view dir, bool recursive) {
    const std::string name(dir);
    const std::string lead = name.empty() ? "" : name + "/";
    bool is_found = name.empty();
    const auto add = [&](const fs::idir* found) {
        if (found != nullptr) add_directories(out, *found, lead, recursive), is_found = true;
    };
    const fs::registry::SharedGuard guard;
    add(fs::registry::state().index.find(name.c_str()));
    fs::registry::for_each_source([&](CFSSource& source) { add(fs::registry::find_directory(source, name.c_str())); });
    return is_found;
}

}  // namespace

enginefs_list* enginefs_search(const char* dir, const char* mask, int recursive) {
    return make_list(dir, [&](List& list) {
        fs::NameList names;
        if (!is_running() || !is_quiet([&] { names.reset(fs::search(dir, mask, recursive != 0, false)); }))
            return false;
        for (const FS_NAME* name = names.get(); name != nullptr; name = name->next) list.add(name->name);
        return true;
    });
}

enginefs_list* enginefs_dirs(const char* dir, int recursive) {
    return make_list(dir, [&](List& list) {
        if (!is_name(dir)) return false;
        fs::NormalText wanted(dir, false);
        wanted.drop_trailing_slash();
        Names names;
        if (!collect_directories(names, wanted.view(), recursive != 0))
            return fs::refuse(EFSError::NOT_FOUND, dir, "No source has such a directory.");
        for (const std::string& name : names) list.add(name);
        return true;
    });
}

void enginefs_record_access(int on) { fs::record_access(on != 0); }

enginefs_list* enginefs_access_record() {
    return make_list(nullptr, [](List& list) {
        ztl::vector<fs::string> names;
        if (!is_quiet([&] { fs::get_access_record(names); })) return false;
        for (const fs::string& name : names) list.add(name);
        return true;
    });
}
