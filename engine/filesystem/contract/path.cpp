#include <engine/filesystem/contract/path.h>

#include <cstdlib>
#include <cstring>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/contract/normalize.h"

// A path never throws and never holds half of what it was given: without memory both parts are empty, so that no
// operation runs on a name that nobody named, and the failure is stored.

namespace fs {

namespace {

constexpr std::size_t longest_part = 0x7FFFFFFE;  // lengths are kept in 32 bits; nothing near this is a name

std::string_view view_of(const char* text) { return text != nullptr ? text : ""; }

}  // namespace

path::path() : path(installed) {}

path::path(const char* text, bool lower) : path(static_cast<std::uint8_t>(installed | (lower ? lowercase : 0))) {
    const std::string_view in = view_of(text);
    char* const out = reserve(in.size(), 0);
    if (out == nullptr) return;
    const Normalized found = normalize(out, in.data(), in.size(), !lower);
    std::memmove(out + found.split + 1, out + found.split, found.length - found.split + 1);
    out[found.split] = '\0';
    dir_length_ = static_cast<std::uint32_t>(found.split);
    file_length_ = static_cast<std::uint32_t>(found.length - found.split);
    // Each part counts as it is normalised on its own.
    if (found.has_colon) Set(PathName(), FileName(), lower);
}

path::path(const path& other) : path(static_cast<std::uint8_t>(other.flags_ & ~on_heap)) {
    char* const out = reserve(other.dir_length_, other.file_length_);
    if (out == nullptr) return;
    dir_length_ = other.dir_length_;
    file_length_ = other.file_length_;
    std::memcpy(out, other.text(), dir_length_ + file_length_ + 2);
}

path::path(path&& other) noexcept { take_from(other); }

path& path::operator=(const path& other) {
    if (this != &other) *this = path(other);
    return *this;
}

path& path::operator=(path&& other) noexcept {
    if (this == &other) return *this;
    Release();
    take_from(other);
    return *this;
}

void path::reset(std::uint8_t flags) {
    inline_[0] = inline_[1] = '\0';
    dir_length_ = file_length_ = 0;
    flags_ = flags;
}

/// Room for texts of these lengths in a path that is empty; null, with the failure stored, without memory.
char* path::reserve(std::size_t dir_length, std::size_t file_length) {
    const std::size_t size = dir_length + file_length + 2;
    if (size <= inline_capacity) return inline_;
    const bool fits = dir_length < longest_part && file_length < longest_part;
    auto* const block = fits ? static_cast<char*>(std::malloc(size)) : nullptr;
    if (block == nullptr) {
        set_error(EFSError::OUT_OF_MEMORY, nullptr, "There is no memory for a path.");
        return nullptr;
    }
    block[0] = block[1] = '\0';
    heap_.text = block;
    heap_.capacity = size;
    flags_ = static_cast<std::uint8_t>(flags_ | on_heap);
    return block;
}

void path::take_from(path& other) {
    std::memcpy(inline_, other.inline_, sizeof inline_);  // a block's description lies in the same place
    dir_length_ = other.dir_length_;
    file_length_ = other.file_length_;
    flags_ = other.flags_;
    other.reset(installed);
}

void path::Release() {
    if ((flags_ & on_heap) != 0) std::free(heap_.text);
    reset(static_cast<std::uint8_t>(flags_ & ~on_heap));
}

void path::Set(const char* dir, const char* file, bool lower) {
    path made(static_cast<std::uint8_t>(installed | (lower ? lowercase : 0)));  // either text may lie in this path
    const std::string_view dir_in = view_of(dir);
    const std::string_view file_in = view_of(file);
    char* const out = made.reserve(dir_in.size() + 1, file_in.size());
    if (out != nullptr) {
        std::size_t length = normalize(out, dir_in.data(), dir_in.size(), !lower).length;
        if (length != 0 && out[length - 1] != '/') out[length++] = '/';
        out[length] = '\0';
        made.dir_length_ = static_cast<std::uint32_t>(length);
        const Normalized name = normalize(out + length + 1, file_in.data(), file_in.size(), !lower);
        made.file_length_ = static_cast<std::uint32_t>(name.length);
    }
    *this = std::move(made);
}

void path::SetInstalled(bool on) { flags_ = static_cast<std::uint8_t>(on ? flags_ | installed : flags_ & ~installed); }

void path::Lowercase() {
    if (!IsLowercase()) fold_text(const_cast<char*>(text()), dir_length_ + file_length_ + std::size_t{1});
    flags_ = static_cast<std::uint8_t>(flags_ | lowercase);
}

bool path::FullName(char* out, std::size_t capacity) const {
    if (out == nullptr || capacity == 0) return false;
    const bool fits = std::size_t{dir_length_} + file_length_ < capacity;
    out[0] = '\0';
    if (!fits) return false;
    std::memcpy(out, PathName(), dir_length_);
    std::memcpy(out + dir_length_, FileName(), file_length_ + std::size_t{1});
    return true;
}

void path::FullName(ztl::string_base<char>& out) const {
    fs::string name;
    guarded(FileName(), [&] { name.append(PathNameView()).append(FileNameView()); });
    out.swap(name);
}

const char* path::Ext() const {
    const std::string_view file = FileNameView();
    const std::size_t dot = file.rfind('.');
    return file.data() + (dot == std::string_view::npos ? file.size() : dot);
}

void path::ExtReplace(const char* ext) {
    const std::string_view added(ext != nullptr ? ext : "");
    const std::size_t base = static_cast<std::size_t>(Ext() - text());  // directory and name, with a terminator between
    const bool needs_dot = !added.empty() && added.front() != '.';
    path made(static_cast<std::uint8_t>(flags_ & ~on_heap));  // the extension may lie in this path
    char* const out = made.reserve(base, needs_dot + added.size());
    if (out != nullptr) {
        std::memcpy(out, text(), base);
        out[base] = '.';
        added.copy(out + base + needs_dot, added.size());
        const std::size_t end = base + needs_dot + added.size();
        out[end] = '\0';
        if (IsLowercase()) fold_text(out + base, end - base);
        made.dir_length_ = dir_length_;
        made.file_length_ = static_cast<std::uint32_t>(end - dir_length_ - 1);
    }
    *this = std::move(made);
}

std::uint64_t path::calc_wasted_space() const {
    const std::size_t used = std::size_t{dir_length_} + file_length_ + 2;
    if ((flags_ & on_heap) == 0) return inline_capacity - used;
    return inline_capacity - sizeof(heap_) + heap_.capacity - used;  // of the place in the value only the block is used
}

std::uint64_t path::calc_occupied_space() const {
    return sizeof(path) + ((flags_ & on_heap) != 0 ? heap_.capacity : 0) - calc_wasted_space();
}

}  // namespace fs
