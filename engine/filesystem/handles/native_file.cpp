#include "engine/filesystem/handles/native_file.h"

#include "engine/filesystem/contract/disk_use.h"
#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/log/message.h"

namespace {

constexpr MessageSource messages{"FileSystem", "engine/filesystem/win/win_files"};

}  // namespace

std::uint64_t Win32FileHandle::read(void* buffer, std::uint64_t size) {
    const fs::DiskUse use("read", fs::file_name(this));
    return check_read(file_.read(buffer, size), buffer, size);
}

std::uint64_t Win32FileHandle::read_at(void* buffer, std::uint64_t size, std::uint64_t offset) const {
    return check_read(file_.read_at(buffer, size, offset), buffer, size);
}

std::uint64_t Win32FileHandle::check_read(std::uint64_t done, void* buffer, std::uint64_t size) const {
    if (done != fs::failed_size) return done;
    const platform::Error error = platform::last_error();
    fs::set_error_from_platform(name, "cannot be read", error);
    log_message(messages, Log::ELevel::ERRR, __LINE__, "ReadFile failed: file=%p, buffer=%p, size=%u, error=%#x(%d)\n",
                reinterpret_cast<void*>(file_.native()), buffer, static_cast<unsigned>(size),
                static_cast<unsigned>(error.os_code), static_cast<int>(error.os_code));
    return fs::failed_size;
}

std::uint64_t Win32FileHandle::write(const void* buffer, std::uint64_t size) {
    const std::uint64_t done = file_.write(buffer, size);
    if (done == fs::failed_size) fs::refuse_by_disk(name, "cannot be written");
    return done;
}

bool Win32FileHandle::seek(std::int64_t offset, EFSSeek::TYPE origin) {
    return origin <= EFSSeek::END && file_.seek(offset, static_cast<platform::Origin>(origin));
}

std::uint64_t Win32FileHandle::length() { return file_.length(); }
std::uint64_t Win32FileHandle::tell() { return file_.tell(); }

bool Win32FileHandle::set_eof() { return file_.set_end() || fs::refuse_by_disk(name, "cannot be cut or extended"); }

const void* Win32FileHandle::view(std::uint64_t& size, bool populate) {
    size = file_.length();
    if (size == fs::failed_size || size == 0) return nullptr;
    if (mapping_.IsEmpty()) mapping_ = platform::Mapping(file_, 0, size);
    if (!mapping_.IsEmpty() && (!populate || mapping_.Populate())) return mapping_.Data();
    return fs::refuse_by_disk(name, "cannot be mapped"), nullptr;
}
