#include "engine/filesystem/sources/names/directory_texts.h"

#include <algorithm>
#include <stdexcept>

#include "engine/kernel/text.h"

namespace fs {

std::uint32_t DirectoryTexts::intern(std::string_view wanted) {
    const std::uint64_t hash = kernel::hash_text(wanted);
    const std::size_t found = index_.find(hash, [&](std::uint32_t dir) { return spelled(dir) == wanted; });
    if (found != HashIndex::npos) return index_.value(found);
    index_.make_room();
    const std::uint32_t dir = store(wanted);
    index_.insert(hash, dir);
    return dir;
}

std::uint32_t DirectoryTexts::store(std::string_view spelled) {
    const std::size_t length = spelled.size();
    if (length > 0xFFFF || store_.size() > 0xFFFF0000u - 2 * 0x10000) throw std::length_error("directory");
    const bool is_spelled = platform::has_upper_case(spelled.data(), length);
    const Head head{static_cast<std::uint16_t>(length), is_spelled};
    const std::size_t dir = store_.size();
    store_.resize(dir + sizeof head + (is_spelled ? length * 2 : length));
    char* out = store_.data() + dir;
    std::memcpy(out, &head, sizeof head);
    out = std::transform(spelled.begin(), spelled.end(), out + sizeof head, kernel::fold);
    if (is_spelled) spelled.copy(out, length);
    return static_cast<std::uint32_t>(dir);
}

}  // namespace fs
