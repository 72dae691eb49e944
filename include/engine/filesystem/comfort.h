#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <engine/filesystem/access.h>
#include <engine/filesystem/contract.h>

// The exported interface in the manner of today's C++, header-only: handles and lists that free themselves, whole files in
// standard containers, paths of <filesystem>. Nothing here needs more than <engine/filesystem.h> exports.
//
// Failure  null or false, the reason in fs::last_error, as the functions beneath tell it. Missing memory for a container is
//          std::bad_alloc, since these functions are compiled into the caller; then nothing is leaked.
// Threads  as the functions beneath.

namespace fs {

/// Closes a file by fs::close.
struct file_closer {
    void operator()(SFsFile* file) const { close(file); }
};
/// An open file that closes itself. It ends before its source is removed.
using file_ptr = std::unique_ptr<SFsFile, file_closer>;

/// fs::open with an owner.
inline file_ptr open_file(const char* path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE) {
    return file_ptr(open(path, mode, flags));
}

/// Reads all that is left of `file`, also where its length is not known (gzip), and puts it in place of `out`. Unlike
/// fs::read it tells of a failed read and of damage: false, with `out` as it was. Clears fs::last_error first, but for a
/// null file, whose open has left its reason there.
/// Container  of char or std::byte: std::string, std::vector<std::byte> and alike.
template <typename Container>
bool read_rest(SFsFile* file, Container& out) {
    static_assert(sizeof(typename Container::value_type) == 1);
    constexpr std::uint64_t step = 64 * 1024;
    constexpr std::uint64_t failed = ~std::uint64_t{0};
    if (file == nullptr) return false;  // why it did not open is told already
    clear_error();
    const std::uint64_t size = length(file);
    const std::uint64_t at = tell(file);
    Container bytes;
    std::size_t used = 0;
    bytes.resize(static_cast<std::size_t>(size != failed && at < size ? size - at : step));
    for (;;) {
        const std::uint64_t got = read(file, bytes.data() + used, bytes.size() - used);
        if (got == failed || last_error().code != EFSError::NONE) return false;
        used += static_cast<std::size_t>(got);
        if (used < bytes.size() || (size != failed && at + used >= size)) break;
        bytes.resize(bytes.size() * 2);
    }
    bytes.resize(used);
    out = std::move(bytes);
    return true;
}

/// The whole file in place of `out`, as read_rest.
template <typename Container>
bool read_file(Container& out, const char* path) {
    const file_ptr file = open_file(path, EFSMode::READ);
    return file != nullptr && read_rest(file.get(), out);
}

/// Makes the file of these bytes, or fills it anew; fs::save_binary_file with a span.
inline bool write_file(std::span<const std::byte> bytes, const char* path) {
    return save_binary_file(bytes.data(), bytes.size(), path);
}
inline bool write_file(std::string_view text, const char* path) {
    return write_file(std::as_bytes(std::span(text)), path);
}

/// The answer of a search, which frees itself: for (const char* name : fs::find_files("levels", "*.txt")).
class found_files {
public:
    class iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = const char*;
        using difference_type = std::ptrdiff_t;
        using pointer = const value_type*;
        using reference = value_type;

        explicit iterator(const FS_NAME* node = nullptr) : node_(node) {}
        value_type operator*() const { return node_->name; }
        iterator& operator++() {
            node_ = node_->next;
            return *this;
        }
        iterator operator++(int) { return std::exchange(*this, iterator(node_->next)); }
        bool operator==(const iterator&) const = default;

    private:
        const FS_NAME* node_;
    };

    /// Takes over a list of fs::search, fs::search_substring or a source; null is an empty one.
    explicit found_files(FS_NAME* names) : names_(names) {}
    iterator begin() const { return iterator(names_.get()); }
    iterator end() const { return iterator(); }
    bool empty() const { return names_ == nullptr; }

private:
    struct free_list {
        void operator()(FS_NAME* names) const { free_names(names); }
    };
    std::unique_ptr<FS_NAME, free_list> names_;
};

/// The files of every source in `dir`, which is everywhere when it is null, and below it unless `recursive` is false.
inline found_files find_files(const char* dir, const char* mask = nullptr, bool recursive = true) {
    return found_files(search(dir, mask, recursive, /*indexed_only*/ false));
}

/// A path of <filesystem> as this library takes native paths and names: "/" as separator, and UTF-8 on Windows.
inline std::string from_path(const std::filesystem::path& path) {
    const std::u8string text = path.generic_u8string();
    return {text.begin(), text.end()};
}
/// A native path of this library, such as fs::native_path answers, for <filesystem> and whoever opens by it.
inline std::filesystem::path to_path(std::string_view text) {
    return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

}  // namespace fs
