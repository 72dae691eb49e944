#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "engine/filesystem/sources/names/hash_index.h"

namespace fs {

/// The directories of a table, each kept once: in lower case and as the disk spells it. A directory's number is where it
/// stands in the store, so that a lookup reads nothing but the directory itself.
class DirectoryTexts {
public:
    /// `root` is what the empty directory is compared as.
    explicit DirectoryTexts(std::string_view root) { store(root); }

    /// The number of a directory ("" or ending in "/"), added when it is new. May throw std::bad_alloc, or
    /// std::length_error when it or all of them together are longer than numbers reach.
    std::uint32_t intern(std::string_view spelled);

    std::string_view lower(std::uint32_t dir) const { return {text(dir), head(dir).length}; }
    std::string_view spelled(std::uint32_t dir) const {
        const Head found = head(dir);
        return {text(dir) + (found.is_spelled ? found.length : 0), found.length};
    }
    /// Calls `visit(dir)` for every directory that was ever interned.
    template <class Visit>
    void for_each(Visit visit) const {
        for (std::uint32_t dir = after(root_dir); dir < store_.size(); dir = after(dir)) visit(dir);
    }
    std::string_view root() const { return lower(root_dir); }
    /// What lookups compare: the directory's own text, or the root's when that is empty.
    std::string_view compared(std::uint32_t dir) const { return head(dir).length != 0 ? lower(dir) : root(); }
    /// Where that text begins among `characters`.
    std::uint32_t compared_offset(std::uint32_t dir) const {
        return (head(dir).length != 0 ? dir : root_dir) + std::uint32_t{sizeof(Head)};
    }
    /// Where the offsets count from; good until the next intern.
    const char* characters() const { return store_.data(); }

    std::size_t bytes() const { return store_.capacity() + index_.bytes(); }

private:
    struct Head {  // the lower-case text follows, and the disk's spelling when it differs
        std::uint16_t length;
        std::uint16_t is_spelled;
    };
    static constexpr std::uint32_t root_dir = 0;

    Head head(std::uint32_t dir) const {
        Head found;
        std::memcpy(&found, store_.data() + dir, sizeof found);
        return found;
    }
    std::uint32_t after(std::uint32_t dir) const {
        const Head found = head(dir);
        return dir + std::uint32_t{sizeof found} + found.length * (found.is_spelled ? 2u : 1u);
    }
    const char* text(std::uint32_t dir) const { return store_.data() + dir + sizeof(Head); }
    std::uint32_t store(std::string_view spelled);

    std::vector<char> store_;
    HashIndex index_;  // by the spelling
};

}  // namespace fs
