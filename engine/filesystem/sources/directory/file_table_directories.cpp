#include "engine/filesystem/sources/directory/file_table_directories.h"

#include <algorithm>

#include "engine/filesystem/contract/normalize.h"

namespace fs {

bool DirectoryNames::set_root(std::string_view root) {
    const std::size_t words = (root.size() + 3) / 4;
    text_.resize_down(0);
    char* text = text_.extend(words * 4 + 4);
    if (!text) return false;
    root_offset_ = 0;
    root_length_ = static_cast<std::uint32_t>(root.size());
    first_ = static_cast<std::uint32_t>(words + 1);
    root.copy(text, root.size());
    fold_text(text, root.size());
    return true;
}

std::uint32_t DirectoryNames::intern(std::string_view wanted) {
    const std::uint64_t hash = hash_text(wanted.data(), wanted.size());
    if (const std::uint32_t* found =
            index_.find(hash, [&](std::uint32_t dir, std::uint32_t) { return spelled(dir) == wanted; })) {
        return *found;
    }
    if (index_.is_full() && !grow_index()) return none;
    const std::uint32_t dir = store(wanted);
    if (dir != none) index_.insert(hash, dir, 0);
    return dir;
}

std::uint32_t DirectoryNames::size_in_words(std::size_t length, bool is_spelled) {
    return static_cast<std::uint32_t>((sizeof(Head) + (is_spelled ? length * 2 : length) + 3) / 4);
}

std::uint32_t DirectoryNames::store(std::string_view spelled) {
    constexpr std::size_t limit = 0xFFFF0000u;  // offsets have 32 bits
    const std::size_t length = spelled.size();
    const bool is_spelled = std::any_of(spelled.begin(), spelled.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
    if (length > 0xFFFF || text_.size() > limit - 2 * 0x10000) return none;
    const auto dir = static_cast<std::uint32_t>(text_.size() / 4);
    char* place = text_.extend(std::size_t{size_in_words(length, is_spelled)} * 4);
    if (!place) return none;
    const Head head{static_cast<std::uint16_t>(length), is_spelled};
    std::memcpy(place, &head, sizeof head);
    char* text = place + sizeof head;
    spelled.copy(text, length);
    if (!is_spelled) return dir;
    spelled.copy(text + length, length);
    fold_text(text, length);
    return dir;
}

bool DirectoryNames::grow_index() {
    if (!index_.start_over(index_.size() * 2)) return false;
    for (std::uint32_t dir = first_; dir < text_.size() / 4;
         dir += size_in_words(head(dir).length, head(dir).is_spelled != 0)) {
        const std::string_view text = spelled(dir);
        index_.insert(hash_text(text.data(), text.size()), dir, 0);
    }
    return true;
}

}  // namespace fs
