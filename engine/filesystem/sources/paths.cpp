#include "engine/filesystem/sources/paths.h"

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/open_file.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/handles/native_open.h"
#include "engine/kernel/text.h"
#include "engine/platform/directories.h"

namespace fs {

bool open_native_root(std::string_view given, std::string_view spelling, bool parent, NativeRoot& root,
                      std::string& start) {
    const std::string wanted(kernel::equal_folded(spelling, given) ? spelling : given);
    char spelled[platform::path_buffer_size];
    if (wanted.size() > platform::max_path_bytes)
        return refuse(EFSError::INVALID_NAME, wanted.c_str(), "The root of the source is too long.");
    if (!platform::resolve_case(wanted.c_str(), spelled)) return refuse_by_disk(wanted.c_str(), "cannot be looked for");
    // Its length may be another one: short names of Windows are told in full.
    const std::string_view whole(spelled);
    const std::size_t split = parent ? parent_directory(whole).size() : 0;
    start = split == 0 ? "" : whole.substr(split);
    root.text = split == 0 ? whole : whole.substr(0, split);
    root.handle = std::make_shared<platform::Root>(platform::Root::open(root.text.c_str()));
    return true;
}

Place place_of(const NativeRoot& root, std::string_view& dir) {
    if (!root.text.empty() && kernel::equal_folded(dir.substr(0, root.text.size()), root.text)) {
        dir.remove_prefix(root.text.size());
        return Place::INSIDE;
    }
    return is_native_directory_name(dir) ? Place::OUTSIDE : Place::RELATIVE;
}

bool NativePath::append(std::string_view added) {
    if (added.size() > platform::max_path_bytes - length) return false;
    added.copy(text + length, added.size());
    cut(length + added.size());
    return true;
}

bool build_native_path(const NativeRoot& root, std::string_view dir, std::string_view name, NativePath& out) {
    out.cut(0);
    if (!out.append(root.text)) return false;
    out.root_length = out.length;
    return out.append(dir) && out.append(name);
}

SFsFile* open_of_source(CFSSource* source, const platform::PathAt& path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags,
                        std::string_view name) {
    flags &= ~FFSOpenFlags::WHOLE_NAME;
    if (mode == EFSMode::READ || mode == EFSMode::WRITE)
        return open_native_at(source, path, mode, flags & ~FFSOpenFlags::THROUGH_VFS, name);
    if (is_valid_open(mode, flags)) return open_for_change(source, path, mode, flags, name);
    set_error(EFSError::INVALID_ARGUMENT, path.full, "Mode and flags of the open exclude each other.");
    return nullptr;
}

bool prepare_rename(std::string_view from, const char* to) {
    if (!kernel::equal_folded(from, to) && platform::get_attributes(to))
        return refuse(EFSError::ALREADY_EXISTS, to, "There is a file of the new name.");
    return create_directories(to);
}

}  // namespace fs
