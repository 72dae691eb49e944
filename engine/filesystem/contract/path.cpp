#include <engine/filesystem/contract/path.h>

#include <cstdlib>
#include <cstring>

#include "engine/filesystem/contract/guarded.h"
#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/contract/plain_path.h"

// A path never throws and never holds half of what it was given: without memory both parts are empty, so that no
// operation runs on a name that nobody named, and the failure is stored.

namespace fs {

namespace {

constexpr std::size_t longest_part = 0x7FFFFFFF;  // lengths are kept in 32 bits; nothing near this is a name

/// Tells of a text that there is no memory for.
void lose_text() { set_error(EFSError::OUT_OF_MEMORY, nullptr, "There is no memory for a path."); }

/// Bytes that a part holds beyond the text and its terminator.
std::uint64_t unused_bytes(std::size_t held, std::string_view text) { return held - (text.size() + 1); }

}  // namespace

path::path() { reset(installed); }

path::path(const char* text, bool lower) {
    const std::uint8_t flags = static_cast<std::uint8_t>(installed | (lower ? lowercase : 0));
    reset(flags);
    if (text == nullptr || text[0] == '\0') return;
    const std::size_t length = std::strlen(text);
    const PathLook look = look_at_path(text, length);
    const std::size_t file_length = length - look.split;
    if (look.is_plain && look.split < inline_capacity && file_length < inline_capacity) {
        copy_short_plain(dir_.inline_text, text, look.split, !lower);
        copy_short_plain(file_.inline_text, text + look.split, file_length, !lower);
        dir_length_ = static_cast<std::uint8_t>(look.split);
        file_length_ = static_cast<std::uint8_t>(file_length);
        return;
    }
    set_normalized(text, length, flags);
}

void path::set_normalized(const char* text, std::size_t length, std::uint8_t flags) {
    const bool lower = (flags & lowercase) != 0;
    ScratchText scratch(length);
    char* const normal = scratch.text();
    if (normal == nullptr) return lose_text();
    const Normalized found = normalize(normal, text, !lower);
    const std::string_view whole(normal, found.length);
    if (!found.has_colon) {
        assign(whole.substr(0, found.split), whole.substr(found.split), flags);
        return;
    }
    ScratchText dir(found.split);
    if (dir.text() == nullptr) return lose_text();
    std::memcpy(dir.text(), normal, found.split);
    dir.text()[found.split] = '\0';
    Set(dir.text(), normal + found.split, lower);
}

path::path(const path& other) {
    reset(other.flags_ & (lowercase | installed));
    assign(other.PathNameView(), other.FileNameView(), flags_);
}

path::path(path&& other) noexcept { take_from(other); }

path& path::operator=(const path& other) {
    if (this == &other) return *this;
    assign(other.PathNameView(), other.FileNameView(), other.flags_ & (lowercase | installed));
    return *this;
}

path& path::operator=(path&& other) noexcept {
    if (this == &other) return *this;
    Release();
    take_from(other);
    return *this;
}

void path::reset(std::uint8_t flags) {
    file_.inline_text[0] = '\0';
    dir_.inline_text[0] = '\0';
    file_length_ = 0;
    dir_length_ = 0;
    flags_ = flags;
}

void path::take_from(path& other) {
    std::memcpy(&file_, &other.file_, sizeof(file_));
    std::memcpy(&dir_, &other.dir_, sizeof(dir_));
    file_length_ = other.file_length_;
    dir_length_ = other.dir_length_;
    flags_ = other.flags_;
    other.reset(installed);
}

void path::release_part(Text& part, std::uint8_t& length, std::uint8_t heap_flag) {
    if ((flags_ & heap_flag) != 0) std::free(part.heap.text);
    flags_ = static_cast<std::uint8_t>(flags_ & ~heap_flag);
    part.inline_text[0] = '\0';
    length = 0;
}

void path::Release() {
    release_part(file_, file_length_, file_on_heap);
    release_part(dir_, dir_length_, dir_on_heap);
}

/// Replaces one part. A block that is large enough is used again. `text` may not lie in the path itself.
bool path::store(Text& part, std::uint8_t& length, std::uint8_t heap_flag, std::string_view text) {
    if (text.size() < inline_capacity) {
        if ((flags_ & heap_flag) != 0) release_part(part, length, heap_flag);
        std::memcpy(part.inline_text, text.data(), text.size());
        part.inline_text[text.size()] = '\0';
        length = static_cast<std::uint8_t>(text.size());
        return true;
    }
    if (text.size() > longest_part) return false;
    if ((flags_ & heap_flag) == 0 || part.heap.capacity <= text.size()) {
        auto* const block = static_cast<char*>(std::malloc(text.size() + 1));
        if (block == nullptr) return false;
        release_part(part, length, heap_flag);
        part.heap.text = block;
        part.heap.capacity = static_cast<std::uint32_t>(text.size() + 1);
        flags_ = static_cast<std::uint8_t>(flags_ | heap_flag);
    }
    std::memcpy(part.heap.text, text.data(), text.size());
    part.heap.text[text.size()] = '\0';
    part.heap.length = static_cast<std::uint32_t>(text.size());
    return true;
}

void path::assign(std::string_view dir, std::string_view file, std::uint8_t flags) {
    if (!store(dir_, dir_length_, dir_on_heap, dir) || !store(file_, file_length_, file_on_heap, file)) {
        Release();
        lose_text();
    }
    flags_ = static_cast<std::uint8_t>((flags_ & (file_on_heap | dir_on_heap)) | flags);
}

void path::Set(const char* dir, const char* file, bool lower) {
    const std::uint8_t flags = static_cast<std::uint8_t>(installed | (lower ? lowercase : 0));
    if (dir == nullptr) dir = "";
    if (file == nullptr) file = "";
    // Both are copied before anything is stored, so either may lie in this path.
    ScratchText dir_text(std::strlen(dir) + 1);
    ScratchText file_text(std::strlen(file));
    if (dir_text.text() == nullptr || file_text.text() == nullptr) {
        assign("", "", flags);
        return lose_text();
    }
    std::size_t dir_length = normalize(dir_text.text(), dir, !lower).length;
    if (dir_length != 0 && dir_text.text()[dir_length - 1] != '/') dir_text.text()[dir_length++] = '/';
    const std::size_t file_length = normalize(file_text.text(), file, !lower).length;
    assign({dir_text.text(), dir_length}, {file_text.text(), file_length}, flags);
}

void path::SetInstalled(bool on) { flags_ = static_cast<std::uint8_t>(on ? flags_ | installed : flags_ & ~installed); }

void path::Lowercase() {
    if (IsLowercase()) return;
    fold_text(const_cast<char*>(FileName()), FileNameView().size());
    fold_text(const_cast<char*>(PathName()), PathNameView().size());
    flags_ = static_cast<std::uint8_t>(flags_ | lowercase);
}

bool path::FullName(char* out, std::size_t capacity) const {
    if (out == nullptr || capacity == 0) return false;
    const std::string_view dir = PathNameView();
    const std::string_view file = FileNameView();
    if (dir.size() >= capacity || file.size() >= capacity - dir.size()) {
        out[0] = '\0';
        return false;
    }
    std::memcpy(out, dir.data(), dir.size());
    std::memcpy(out + dir.size(), file.data(), file.size());
    out[dir.size() + file.size()] = '\0';
    return true;
}

void path::FullName(ztl::string_base<char>& out) const {
    fs::string name;
    guarded(FileName(), [&] {
        name.reserve(PathNameView().size() + FileNameView().size());
        name.append(PathNameView()).append(FileNameView());
    });
    out.swap(name);
}

const char* path::Ext() const {
    const std::string_view file = FileNameView();
    const std::size_t dot = file.rfind('.');
    return file.data() + (dot == std::string_view::npos ? file.size() : dot);
}

void path::ExtReplace(const char* ext) {
    if (ext == nullptr) ext = "";
    const std::size_t base = static_cast<std::size_t>(Ext() - FileName());
    const std::size_t ext_length = std::strlen(ext);
    const std::size_t dot = ext_length != 0 && ext[0] != '.' ? 1 : 0;
    // The old text may lie in the very place of the new one, and `ext` in this path.
    ScratchText scratch(base + dot + ext_length);
    char* const text = scratch.text();
    if (text == nullptr) return lose_text();
    std::memcpy(text, FileName(), base);
    text[base] = '.';
    std::memcpy(text + base + dot, ext, ext_length);
    const std::size_t length = base + dot + ext_length;
    if (IsLowercase()) fold_text(text + base, length - base);
    if (store(file_, file_length_, file_on_heap, {text, length})) return;
    Release();
    lose_text();
}

std::uint64_t path::calc_wasted_space() const {
    // A part on the heap still occupies its place in the value; only the block's description is used of it.
    constexpr std::uint64_t place = inline_capacity - sizeof(Text::heap);
    const bool file_heap = (flags_ & file_on_heap) != 0;
    const bool dir_heap = (flags_ & dir_on_heap) != 0;
    return (file_heap ? place + unused_bytes(file_.heap.capacity, FileNameView())
                      : unused_bytes(inline_capacity, FileNameView())) +
           (dir_heap ? place + unused_bytes(dir_.heap.capacity, PathNameView())
                     : unused_bytes(inline_capacity, PathNameView()));
}

std::uint64_t path::calc_occupied_space() const {
    std::uint64_t total = sizeof(path);
    if ((flags_ & file_on_heap) != 0) total += file_.heap.capacity;
    if ((flags_ & dir_on_heap) != 0) total += dir_.heap.capacity;
    return total - calc_wasted_space();
}

}  // namespace fs
