#include "engine/filesystem/sources/file_table_directories.h"

#include <algorithm>

#include "engine/filesystem/contract/normalize.h"

namespace fs {

bool DirectoryNames::set_root(std::string_view root) {
    char* text = text_.extend(root.size());
    if (!text && !root.empty()) return false;
    root_offset_ = static_cast<std::uint32_t>(text_.size() - root.size());
    root_length_ = static_cast<std::uint32_t>(root.size());
    std::copy(root.begin(), root.end(), text);
    fold_text(text, root.size());
    return true;
}

std::uint32_t DirectoryNames::intern(std::string_view wanted) {
    const std::uint64_t hash = hash_text(wanted.data(), wanted.size());
    if (const std::uint32_t* found = index_.find(hash, [&](std::uint32_t dir) { return spelled(dir) == wanted; })) {
        return *found;
    }
    if (index_.is_full() && !grow_index()) return none;
    const std::uint32_t dir = store(wanted);
    if (dir != none) index_.insert(hash, dir);
    return dir;
}

std::uint32_t DirectoryNames::store(std::string_view spelled) {
    const std::size_t length = spelled.size();
    const bool is_spelled = std::any_of(spelled.begin(), spelled.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
    const std::size_t size = is_spelled ? length * 2 : length;
    if (length > 0xFFFF || size > none - text_.size() || !text_.reserve(text_.size() + 1)) return none;
    const auto offset = static_cast<std::uint32_t>(text_.size());
    char* text = text_.extend(size);
    if (!text || !dirs_.push({offset, static_cast<std::uint16_t>(length), is_spelled})) return none;
    std::copy(spelled.begin(), spelled.end(), text);
    if (is_spelled) std::copy(spelled.begin(), spelled.end(), text + length);
    fold_text(text, length);
    return size_t{dirs_.size()} > none ? none : static_cast<std::uint32_t>(dirs_.size() - 1);
}

bool DirectoryNames::grow_index() {
    if (!index_.start_over(dirs_.size() * 2 + 1)) return false;
    for (std::uint32_t dir = 0; dir < dirs_.size(); ++dir) {
        const std::string_view text = spelled(dir);
        index_.insert(hash_text(text.data(), text.size()), dir);
    }
    return true;
}

}  // namespace fs
