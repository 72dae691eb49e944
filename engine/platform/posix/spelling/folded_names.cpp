#include <cstring>

#include "engine/platform/folding.h"
#include "engine/platform/posix/directory_reader.h"
#include "engine/platform/posix/spelling/folded_directory.h"

namespace platform {
namespace {

constexpr std::size_t longest_name = 255;  // so says every file system; what were longer could not be asked for

std::uint32_t folded_hash(const char* name, std::size_t length) {
    constexpr std::uint64_t factor = 0x9E3779B97F4A7C15u;
    std::uint64_t hash = length;
    std::uint64_t word = 0;
    std::size_t i = 0;
    for (; i + 8 <= length; i += 8) {
        std::memcpy(&word, name + i, 8);
        hash = (hash ^ fold_word(word)) * factor;
        hash ^= hash >> 29;
    }
    word = 0;
    std::memcpy(&word, name + i, length - i);
    hash = (hash ^ fold_word(word)) * factor;
    return static_cast<std::uint32_t>(hash >> 32);
}

/// Whether `a` stands for a folded name rather than `b`, neither being the exact spelling.
bool is_preferred(const char* a, const char* b, std::size_t length) {
    const bool a_lower = !has_upper_case(a, length);
    if (a_lower != !has_upper_case(b, length)) return a_lower;
    return std::memcmp(a, b, length) < 0;
}

}  // namespace

std::optional<FoldedDirectory> FoldedDirectory::read(int directory) {
    FoldedDirectory names;
    const bool complete = read_directory(
        directory, [&](const DirectoryRecord&, const char* name) { names.add(name, std::strlen(name)); });
    if (!complete) return std::nullopt;
    return names;
}

void FoldedDirectory::add(const char* name, std::size_t length) {
    if (length > longest_name || text_.size() > UINT32_MAX - 2 * longest_name) return;
    if ((count_ + 1) * 2 > slots_.size()) grow();
    const std::size_t at = text_.size();
    text_.push_back(static_cast<char>(length));
    text_.insert(text_.end(), name, name + length);
    enter(at);
    ++count_;
}

void FoldedDirectory::enter(std::size_t at) {
    const std::size_t mask = slots_.size() - 1;
    const std::size_t length = static_cast<unsigned char>(text_[at]);
    std::size_t slot = folded_hash(text_.data() + at + 1, length) & mask;
    while (slots_[slot] != 0) slot = (slot + 1) & mask;
    slots_[slot] = static_cast<std::uint32_t>(at + 1);
}

void FoldedDirectory::grow() {
    slots_.assign(slots_.empty() ? 16 : slots_.size() * 2, 0);
    for (std::size_t at = 0; at < text_.size(); at += 1 + static_cast<unsigned char>(text_[at])) enter(at);
}

const char* FoldedDirectory::find(const char* name, std::size_t length) const {
    if (slots_.empty()) return nullptr;
    const char* best = nullptr;
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t slot = folded_hash(name, length) & mask; slots_[slot] != 0; slot = (slot + 1) & mask) {
        const char* const held = text_.data() + slots_[slot];
        if (static_cast<unsigned char>(held[-1]) != length || !equal_folded(held, name, length)) continue;
        if (std::memcmp(held, name, length) == 0) return held;
        if (best == nullptr || is_preferred(held, best, length)) best = held;
    }
    return best;
}

}  // namespace platform
