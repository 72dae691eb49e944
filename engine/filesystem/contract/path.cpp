// A path never throws and never holds half of what it was given: without memory both parts are empty, so that no
// operation runs on a name that nobody named, and the failure is stored.
#include "engine/filesystem/contract/path_text.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "engine/filesystem/contract/failure.h"
#include "engine/platform/directories.h"

namespace fs {

namespace {

constexpr std::size_t longest_part = 0x7FFFFFFE;  // lengths are kept in 32 bits; nothing near this is a name

fs::path checked_name(const char* path, bool lower) {
    fs::path name(path, lower);
    // Rare: the path names nothing, or there was no memory for it.
    if (name.Empty() && !NormalText(path, !lower).empty()) throw std::bad_alloc();
    return name;
}

template <class Check>
bool all_components(std::string_view path, Check&& check) {
    while (!path.empty()) {
        const std::string_view component = path.substr(0, path.find('/'));
        if (!check(component)) return false;
        path.remove_prefix(std::min(path.size(), component.size() + 1));
    }
    return true;
}

}  // namespace

path::path() : path(installed) {}

path::path(const char* text, bool lower) : path(static_cast<std::uint8_t>(installed | (lower ? lowercase : 0))) {
    const std::string_view in = view_of(text);
    char* const out = reserve(in.size(), 0);
    if (out == nullptr) return;
    const Normalized found = normalize(out, in, !lower);
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
        std::size_t length = normalize(out, dir_in, !lower).length;
        if (length != 0 && out[length - 1] != '/') out[length++] = '/';
        out[length] = '\0';
        made.dir_length_ = static_cast<std::uint32_t>(length);
        const Normalized name = normalize(out + length + 1, file_in, !lower);
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
    out = guarded(FileName(), fs::string(), [&] { return full_name(*this); });
}

const char* path::Ext() const {
    const std::string_view file = FileNameView();
    const std::size_t dot = file.rfind('.');
    return file.data() + (dot == std::string_view::npos ? file.size() : dot);
}

void path::ExtReplace(const char* ext) {
    const std::string_view added = view_of(ext);
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

fs::path lookup_name(const char* path) { return checked_name(path, true); }
fs::path creation_name(const char* path) { return checked_name(path, false); }

fs::path path_of(std::string_view directory, const char* file, bool lower) {
    fs::path name;
    name.Set(std::string(directory).c_str(), file, lower);
    if (name.Empty() && !(directory.empty() && *file == '\0')) throw std::bad_alloc();
    return name;
}

fs::path lower_case(const fs::path& name) {
    fs::path lower = name;
    if (lower.Empty() && !name.Empty()) throw std::bad_alloc();
    lower.Lowercase();
    return lower;
}

fs::string full_name(const fs::path& name) {
    fs::string text(name.PathNameView());
    text += name.FileNameView();
    return text;
}

bool is_creatable_name(const fs::path& name) { return !name.EmptyFile() && is_creatable(full_name(name)); }

std::size_t fixed_prefix_length(std::string_view path) {
    const std::size_t separator = path.find('/');
    if (separator == std::string_view::npos) return 0;
    if (knows_drives && separator != 0 && path[separator - 1] == ':') return separator + 1;
    if (separator != 0) return 0;
    if (!path.starts_with("//")) return 1;
    const std::size_t server_end = path.find('/', 2);
    return server_end == std::string_view::npos ? path.size() : server_end + 1;
}

bool climbs(std::string_view path) {
    return !all_components(path, [](std::string_view component) { return component != ".."; });
}

bool is_creatable(std::string_view path) {
    path.remove_prefix(fixed_prefix_length(path));
    return !path.empty() && all_components(path, [](std::string_view component) {
        return component != ".." && platform::is_valid_name(component.data(), component.size());
    });
}

bool is_native_directory(const char* path) {
    const auto attributes = platform::get_attributes(path);
    return attributes && attributes->is_directory;
}

bool create_directories(std::string_view path) {
    for (std::size_t at = path.find('/', fixed_prefix_length(path)); at != std::string_view::npos;
         at = path.find('/', at + 1)) {
        const std::string part(path.substr(0, at));
        if (platform::create_directory(part.c_str())) continue;
        const platform::Error error = platform::last_error();
        if (error.failure == platform::Failure::ALREADY_EXISTS || is_native_directory(part.c_str())) continue;
        return set_error_from_platform(part.c_str(), "cannot be made", error), false;
    }
    return true;
}

}  // namespace fs
