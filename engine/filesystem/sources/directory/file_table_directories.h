#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "engine/filesystem/sources/directory/file_table_array.h"
#include "engine/filesystem/sources/directory/name_index.h"

namespace fs {

/// The directories that files of a table lie in, each kept once, in lower case and as the disk spells it. A directory's
/// number is its place in the store, so that a look-up reads nothing but the directory itself.
class DirectoryNames {
public:
    static constexpr std::uint32_t none = 0xFFFFFFFFu;

    /// The number of a directory ("" or ending in "/"), made when it is new; none when memory cannot be had.
    std::uint32_t intern(std::string_view spelled);
    /// What an empty directory is compared as; called, perhaps again, before the first directory.
    [[nodiscard]] bool set_root(std::string_view root);

    std::string_view lower(std::uint32_t dir) const { return {text_.data() + offset(dir), head(dir).length}; }
    std::string_view spelled(std::uint32_t dir) const {
        return {text_.data() + offset(dir) + (head(dir).is_spelled ? head(dir).length : 0), head(dir).length};
    }
    std::string_view root() const { return {text_.data() + root_offset_, root_length_}; }
    /// The text that look-ups compare: its own, or the root's when it is empty.
    std::string_view compared(std::uint32_t dir) const { return head(dir).length != 0 ? lower(dir) : root(); }
    std::uint32_t compared_offset(std::uint32_t dir) const {
        return head(dir).length != 0 ? offset(dir) : root_offset_;
    }
    /// Asks for a directory that will soon be read.
    void expect(std::uint32_t dir, std::size_t length) const {
        fetch(text_.data() + std::size_t{dir} * 4);
        fetch(text_.data() + std::size_t{dir} * 4 + length);
    }
    /// The store that these offsets count in.
    const PodArray<char>& text() const { return text_; }
    std::size_t bytes() const { return text_.bytes() + index_.bytes(); }

private:
    struct Head {  // the lower-case text follows, and the disk's spelling when it differs
        std::uint16_t length;
        std::uint16_t is_spelled;
    };

    const Head& head(std::uint32_t dir) const {
        return *reinterpret_cast<const Head*>(text_.data() + std::size_t{dir} * 4);
    }
    static std::uint32_t offset(std::uint32_t dir) { return dir * 4 + static_cast<std::uint32_t>(sizeof(Head)); }
    static std::uint32_t size_in_words(std::size_t length, bool is_spelled);
    std::uint32_t store(std::string_view spelled);
    bool grow_index();

    PodArray<char> text_;
    NameIndex index_;  // by the disk's spelling
    std::uint32_t root_offset_ = 0;
    std::uint32_t root_length_ = 0;
    std::uint32_t first_ = 0;  // the root's text stands before the first directory
};

}  // namespace fs
