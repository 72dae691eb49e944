#include <engine/filesystem/streams/file.h>

#include <engine/filesystem/access/open.h>
#include <engine/filesystem/handles.h>

#include "engine/filesystem/contract/error.h"

namespace fs {

file::file() = default;

file::file(SFsFile* adopted) : handle(adopted) {}

file::~file() { delete handle; }

bool file::open(const char* name, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    handle = fs::open(name, mode, flags);
    return handle != nullptr;
}

void file::close() {
    delete handle;
    handle = nullptr;
}

std::uint64_t file::length() { return fs::length(handle); }

std::uint64_t file::tell() { return fs::tell(handle); }

bool file::seek(std::int64_t offset, EFSSeek::TYPE origin) { return fs::seek(handle, offset, origin); }

std::uint64_t file::read(void* buffer, std::uint64_t size) {
    return handle == nullptr ? not_open() : handle->read(buffer, size);
}

std::uint64_t file::write(const void* data, std::uint64_t size) {
    return handle == nullptr ? not_open() : handle->write(data, size);
}

void file::set_eof() { fs::set_eof(handle); }

const char* file::name() const { return fs::file_name(handle); }

bool file::open_from_handle(SFsFile* adopted) {
    handle = adopted;
    return true;
}

bool file_native::open(const char* name, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    handle = fs::open_native(nullptr, name, mode, flags);
    return handle != nullptr;
}

}  // namespace fs
