#include <engine/filesystem/access/whole_file.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <engine/filesystem/contract/path.h>

#include "engine/filesystem/access/parts.h"
#include "engine/platform/clock.h"

namespace fs {

namespace {

bool write_whole(const char* path, const void* data, std::uint64_t size, FFSOpenFlags::FLAGS flags) {
    return guarded(path, false, [&] {
        FilePtr file(open(path, EFSMode::WRITE, flags));
        return file && write_all(*file, path, data, size) && commit(file.release());
    });
}

}  // namespace

std::uint64_t known_length(SFsFile& file, const char* path) {
    const std::uint64_t length = file.length();
    if (length == no_length) set_error(EFSError::UNSUPPORTED, path, "The file does not tell its length.");
    return length;
}

void read_filled(SFsFile& file, void* buffer, std::uint64_t size) {
    const std::uint64_t read = size != 0 ? file.read(buffer, size) : 0;
    const std::uint64_t got = read <= size ? read : 0;
    // A short read is not reported; what did not come reads as zeros, never as what the memory held before.
    std::memset(static_cast<char*>(buffer) + got, 0, static_cast<std::size_t>(size - got));
}

std::unique_ptr<void, FreeBlock> allocate(std::uint64_t size) {
    void* const block = size < SIZE_MAX ? std::malloc(size != 0 ? static_cast<std::size_t>(size) : 1) : nullptr;
    if (block == nullptr) throw std::bad_alloc();
    return std::unique_ptr<void, FreeBlock>(block);
}

bool read_checked(SFsFile& file, const char* path, void* buffer, std::uint64_t size) {
    const ErrorScope scope;
    return file.read(buffer, size) == size ||
           fail_unless_told(scope, EFSError::IO, path, "The file gave fewer bytes than its length promised.");
}

void* read(const char* path, std::uint64_t* size) {
    void* data = nullptr;
    std::uint64_t length = 0;
    const bool whole = load_binary_file(&data, &length, path);
    if (size != nullptr) *size = whole ? length : 0;
    return data;
}

void read(void* buffer, const char* path, std::uint64_t* size) {
    with_content(path, false, [&](SFsFile& file, std::uint64_t length) {
        if (size != nullptr) *size = length;
        // The buffer's capacity is the caller's word: it must hold the whole file.
        if (buffer != nullptr) file.read(buffer, length);
        return true;
    });
}

std::uint64_t read(std::nullptr_t, void*, std::uint64_t) { return no_length; }

void* read(std::nullptr_t, std::uint64_t* size) {
    if (size != nullptr) *size = 0;
    return nullptr;
}

bool load_text_file(fs::string& out, const char* path) {
    return with_content(path, false, [&](SFsFile& file, std::uint64_t length) {
        if (length == 0) return true;
        out.resize(length);
        read_filled(file, out.data(), length);
        return true;
    });
}

bool save_text_file(const fs::string& text, const char* path, FFSOpenFlags::FLAGS flags) {
    return write_whole(path, text.data(), text.size(), flags);
}

bool save_text_file(const fs::string& text, const char* name, const char* ext, const char* dir) {
    const platform::CalendarTime now = platform::now_local();
    char path[path_capacity];
    const int length = std::snprintf(path, sizeof(path), "%s/%s_%04d%02d%02d_%02d%02d%02d.%s",
                                     dir != nullptr ? dir : "", name != nullptr ? name : "", now.year, now.month,
                                     now.day, now.hour, now.minute, now.second, ext != nullptr ? ext : "");
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof(path)) {
        return refuse(EFSError::INVALID_NAME, dir, "The path of the new file is longer than 259 bytes.");
    }
    return save_text_file(text, path);
}

bool load_binary_file(void** data, std::uint64_t* size, const char* path) {
    if (size != nullptr) *size = 0;
    if (data == nullptr) return false;
    *data = nullptr;
    return with_content(path, false, [&](SFsFile& file, std::uint64_t length) {
        if (size != nullptr) *size = length;
        auto block = allocate(length);
        read_filled(file, block.get(), length);
        *data = block.release();
        return true;
    });
}

bool save_binary_file(const void* data, std::uint64_t size, const char* path, FFSOpenFlags::FLAGS flags) {
    if (data == nullptr && size != 0) {
        return refuse(EFSError::INVALID_ARGUMENT, path, "There are no bytes to write.");
    }
    return write_whole(path, data, size, flags);
}

}  // namespace fs
