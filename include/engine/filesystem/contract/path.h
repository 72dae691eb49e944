#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include <engine/filesystem/api.h>
#include <engine/kernel/ztl.h>

namespace fs {

/// Every path buffer of the file system holds 259 characters and the terminator.
inline constexpr std::size_t path_capacity = 260;

/// A path kept as directory and file name.
///
/// The directory ends in "/" unless it is empty. Both are normalised when they are set (see path_normalize). Copying
/// copies the text. A new path is marked as installed.
/// Threads  a value: one thread changes it, or any number read it.
class ENGINE_FS_API path {
public:
    path();
    /// Normalises `text` (lower-cased when `lower`) and splits it at its last "/". Null is the empty path. Without memory
    /// this and every other operation that sets a text leaves an empty path, and OUT_OF_MEMORY in fs::last_error.
    path(const char* text, bool lower);
    path(const path& other);
    path(path&& other) noexcept;
    path& operator=(const path& other);
    path& operator=(path&& other) noexcept;
    ~path() {
        if ((flags_ & on_heap) != 0) Release();
    }

    /// Replaces both parts and sets the flags to installed, plus lower-cased when `lower`.
    void Set(const char* dir, const char* file, bool lower);
    /// Empties both parts and gives back their memory.
    void Release();

    bool Empty() const { return EmptyFile() && EmptyPath(); }
    bool EmptyFile() const { return FileNameView().empty(); }
    bool EmptyPath() const { return PathNameView().empty(); }

    /// The file name, without a separator; "" when there is none. Valid until the path changes.
    const char* FileName() const { return FileNameView().data(); }
    /// The directory, ending in "/"; "" when there is none. Valid until the path changes.
    const char* PathName() const { return PathNameView().data(); }
    /// The same two texts with their lengths.
    std::string_view FileNameView() const { return {text() + dir_length_ + 1, file_length_}; }
    std::string_view PathNameView() const { return {text(), dir_length_}; }

    bool IsInstalled() const { return (flags_ & installed) != 0; }
    void SetInstalled(bool on);
    /// Whether the text is known to be lower-cased.
    bool IsLowercase() const { return (flags_ & lowercase) != 0; }
    /// Lower-cases both parts (ASCII letters) once.
    void Lowercase();

    /// Directory followed by file name. False, with `out` set to "", when it does not fit into `capacity` bytes.
    bool FullName(char* out, std::size_t capacity) const;
    void FullName(ztl::string_base<char>& out) const;

    /// From the last "." of the file name on; "" when there is none. Points into the path.
    const char* Ext() const;
    /// Puts `ext` ("x" and ".x" are the same) in place of the extension, or appends it when there is none. Null or ""
    /// takes the extension away.
    void ExtReplace(const char* ext);

    /// Both parts equal, byte by byte.
    bool operator==(const path& other) const {
        return FileNameView() == other.FileNameView() && PathNameView() == other.PathNameView();
    }

    /// Bytes that the value holds and does not use, and bytes that it uses, heap blocks included.
    std::uint64_t calc_wasted_space() const;
    std::uint64_t calc_occupied_space() const;

private:
    static constexpr std::size_t inline_capacity = 64;
    static constexpr std::uint8_t on_heap = 1;
    static constexpr std::uint8_t lowercase = 4;
    static constexpr std::uint8_t installed = 8;

    explicit path(std::uint8_t flags) { reset(flags); }
    void reset(std::uint8_t flags);
    char* reserve(std::size_t dir_length, std::size_t file_length);
    void take_from(path& other);
    const char* text() const { return (flags_ & on_heap) != 0 ? heap_.text : inline_; }

    struct Block {  // of the C allocator
        char* text;
        std::size_t capacity;
    };
    // The directory and the file name, each with a terminator: in place while they fit, else in a block.
    union {
        char inline_[inline_capacity];
        Block heap_;
    };
    std::uint32_t dir_length_;
    std::uint32_t file_length_;
    std::uint8_t flags_;
};

/// Normalises a path: "/" as the only separator, "." dropped, ".." resolved where it can be, runs of separators made
/// one. Unless `keep_case`, ASCII letters become lower case. A drive or scheme prefix ("c:") and a network prefix
/// ("//server/share") are kept as they are.
///
/// `out` may be `in`; the output is never longer than the input, and `out` must hold the input's length + 1 bytes.
/// Null `in` writes "".
ENGINE_FS_API void path_normalize(char* out, const char* in, bool keep_case);

/// Whether the path begins with a separator, or with a prefix that ends in ":" before any separator.
ENGINE_FS_API bool is_full_path(const char* path);

// File-name helpers. A path is split into drive (Windows only), directory, file name and extension (with its "."). The
// buffers hold path_capacity characters; an answer that does not fit is "". Each returns `out`. Null is "".

ENGINE_FS_API char* filename_get_ext(char* out, const char* path);
ENGINE_FS_API char* filename_get_name(char* out, const char* path);
/// Drive and directory.
ENGINE_FS_API char* filename_get_path(char* out, const char* path);
/// File name and extension.
ENGINE_FS_API char* filename_get_fname(char* out, const char* path);

ENGINE_FS_API fs::string filename_get_ext(const fs::string& path);
ENGINE_FS_API fs::string filename_get_name(const fs::string& path);
ENGINE_FS_API fs::string filename_get_path(const fs::string& path);
ENGINE_FS_API fs::string filename_get_fname(const fs::string& path);

/// Rebuilds `path` in place with `ext` for its extension ("x" and ".x" are the same). Returns `path`.
ENGINE_FS_API char* filename_change_extension_inplace(char* path, const char* ext);

/// Removes one trailing "/"; a trailing "\\" is left. Returns `path`.
ENGINE_FS_API char* remove_slash(char* path);

/// Makes the path end in "/" by writing it over the last character, so that the length stays the same: callers pass
/// paths whose last character may be dropped. Nothing happens to an empty path, to one that ends in "/" already, or
/// when length + 1 is not below `capacity`. Returns `path`.
ENGINE_FS_API char* append_slash(char* path, std::uint32_t capacity);

/// Builds a path from its four parts into `out` (path_capacity bytes): a ":" after the drive, a "/" after the
/// directory and a "." before the extension are supplied where they are missing; null parts are left out. "" when it
/// does not fit. Returns `out`.
ENGINE_FS_API char* filename_build_path(char* out, const char* drive, const char* dir, const char* name,
                                        const char* ext);
/// Joins path components with single "/" characters into `out`; the list ends with a null pointer. "" when it does not
/// fit. Returns `out`.
ENGINE_FS_API char* filename_build_path_v(char* out, const char* first, ...);
/// As filename_build_path_v, with the whole answer in double quotes when it holds a blank (for command lines).
ENGINE_FS_API char* filename_build_path_vq(char* out, const char* first, ...);

/// Splits `path` into its four parts. Each buffer holds path_capacity bytes; a null one is passed over. False, with all
/// parts "", when the path would not fit into one.
ENGINE_FS_API bool decompose_path(const char* path, char* drive, char* dir, char* name, char* ext);

/// The directory of `path` with its trailing "/"; "" when it has none.
ENGINE_FS_API fs::string extract_path(const char* path);

/// Puts `flags` into the file name: "x.dds" with 0x12 becomes "x&0012.dds". Returns `out` (path_capacity bytes).
ENGINE_FS_API char* mangle_file_name(char* out, const char* path, std::uint32_t flags);

/// Takes the flags out of a mangled name. Returns `out`, or null when the name carries none (`out` is then the path
/// unchanged and `flags` 0).
ENGINE_FS_API char* unmangle_file_name(const char* path, char* out, std::uint32_t& flags);
ENGINE_FS_API char* unmangle_file_name_nameonly(const char* path, char* out);
ENGINE_FS_API std::uint32_t unmangle_file_name_flagsonly(const char* path);

}  // namespace fs
