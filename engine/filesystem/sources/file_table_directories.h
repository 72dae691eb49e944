#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "engine/filesystem/sources/file_table_array.h"
#include "engine/filesystem/sources/name_index.h"

namespace fs {

/// The directories that files of a table lie in, each kept once, in lower case and as the disk spells it.
class DirectoryNames {
public:
    static constexpr std::uint32_t none = 0xFFFFFFFFu;

    /// The number of a directory ("" or ending in "/"), made when it is new; none when memory cannot be had.
    std::uint32_t intern(std::string_view spelled);
    /// What an empty directory is compared as.
    [[nodiscard]] bool set_root(std::string_view root);

    std::string_view lower(std::uint32_t dir) const { return {text_.data() + dirs_[dir].offset, dirs_[dir].length}; }
    std::string_view spelled(std::uint32_t dir) const {
        return {text_.data() + dirs_[dir].offset + (dirs_[dir].is_spelled ? dirs_[dir].length : 0), dirs_[dir].length};
    }
    /// The text that look-ups compare: its own, or the root's when it is empty.
    std::string_view compared(std::uint32_t dir) const { return dirs_[dir].length != 0 ? lower(dir) : root(); }
    std::string_view root() const { return {text_.data() + root_offset_, root_length_}; }
    std::uint32_t compared_offset(std::uint32_t dir) const {
        return dirs_[dir].length != 0 ? dirs_[dir].offset : root_offset_;
    }
    const PodArray<char>& text() const { return text_; }
    std::uint32_t size() const { return static_cast<std::uint32_t>(dirs_.size()); }
    std::size_t bytes() const { return dirs_.bytes() + text_.bytes() + index_.bytes(); }

private:
    struct Directory {
        std::uint32_t offset;  // of the lower-case text; the disk's spelling follows it when it differs
        std::uint16_t length;
        bool is_spelled;
    };

    std::uint32_t store(std::string_view spelled);
    bool grow_index();

    PodArray<Directory> dirs_;
    PodArray<char> text_;
    NameIndex index_;  // by the disk's spelling
    std::uint32_t root_offset_ = 0;
    std::uint32_t root_length_ = 0;
};

}  // namespace fs
