#include "engine/filesystem/handles/native_file.h"

#include "engine/filesystem/contract/disk_use_scope.h"
#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/log/message.h"

namespace {

constexpr MessageSource messages{"FileSystem", "engine/filesystem/win/win_files"};

}  // namespace

Win32FileHandle::~Win32FileHandle() {
    mapping_ = {};  // while the open file keeps writers away
    if (!file_.close()) fs::refuse_by_disk(name, "cannot be closed");
}

std::uint64_t Win32FileHandle::read(void* buffer, std::uint64_t size) {
    const fs::DiskUse use("read", fs::file_name(this));
    platform::fail(platform::Failure::NONE);
    return check_read(file_.read(buffer, size), buffer, size);
}

std::uint64_t Win32FileHandle::read_at(void* buffer, std::uint64_t size, std::uint64_t offset) const {
    platform::fail(platform::Failure::NONE);
    return check_read(file_.read_at(buffer, size, offset), buffer, size);
}

/// A part that came before a failure is given out, and the failure told: the end of the file is none. The seam tells the two
/// apart by its last error alone, so that is cleared before each read.
std::uint64_t Win32FileHandle::check_read(std::uint64_t done, void* buffer, std::uint64_t size) const {
    if (done == size) return done;
    const platform::Error error = platform::last_error();
    if (error.failure == platform::Failure::NONE) return done;
    fs::set_error_from_platform(name, "cannot be read", error);
    log_message(messages, Log::ELevel::ERRR, __LINE__, "ReadFile failed: file=%p, buffer=%p, size=%u, error=%#x(%d)\n",
                reinterpret_cast<void*>(file_.native()), buffer, static_cast<unsigned>(size),
                static_cast<unsigned>(error.os_code), static_cast<int>(error.os_code));
    return done;
}

std::uint64_t Win32FileHandle::write(const void* buffer, std::uint64_t size) {
    const std::uint64_t done = file_.write(buffer, size);
    if (done != size) fs::refuse_by_disk(name, "cannot be written");
    return done;
}

bool Win32FileHandle::seek(std::int64_t offset, EFSSeek::TYPE origin) {
    return (origin <= EFSSeek::END && file_.seek(offset, static_cast<platform::Origin>(origin))) ||
           fs::refuse(EFSError::INVALID_ARGUMENT, name, "No file has such a position.");
}

std::uint64_t Win32FileHandle::length() {
    const std::uint64_t length = file_.length();
    if (length == fs::failed_size) fs::refuse_by_disk(name, "does not tell its length");
    return length;
}

bool Win32FileHandle::set_eof() { return file_.set_end() || fs::refuse_by_disk(name, "cannot be cut or extended"); }

const void* Win32FileHandle::view(std::uint64_t& size, bool populate) {
    // A file that others make longer meanwhile stays as long as it was at first: only that much is mapped.
    if (mapping_.IsEmpty()) mapped_size_ = file_.length();
    size = mapped_size_;
    if (size == 0) return nullptr;
    if (mapping_.IsEmpty() && size != fs::failed_size) mapping_ = platform::Mapping(file_, 0, size);
    if (!mapping_.IsEmpty() && (!populate || mapping_.Populate())) return mapping_.Data();
    return fs::refuse_by_disk(name, "cannot be mapped"), nullptr;
}

bool ReplacingHandle::Note(bool is_good, const fs::ErrorScope& scope) {
    // A disk that fills takes a part without a word.
    if (!is_good && failure_ == EFSError::NONE)
        failure_ = scope.has_error() ? fs::last_error().code : EFSError::DISK_FULL;
    return is_good;
}

std::uint64_t ReplacingHandle::write(const void* buffer, std::uint64_t size) {
    const fs::ErrorScope scope;
    const std::uint64_t written = writer_->write(buffer, size);
    Note(written == size, scope);
    return written;
}

bool ReplacingHandle::set_eof() {
    const fs::ErrorScope scope;
    return Note(writer_->set_eof(), scope);
}

bool ReplacingHandle::commit() {
    if (writer_ == nullptr) return true;
    if (failure_ != EFSError::NONE) {
        discard();
        return fs::refuse(failure_, target_.c_str(), "A write failed, so the file stays as it was.");
    }
    const fs::ErrorScope scope;
    platform::File file = writer_->Release();
    writer_.reset();
    if (!scope.has_error() && PutInPlace(file)) return true;
    file.remove(beside_.c_str());
    return false;
}

bool ReplacingHandle::PutInPlace(platform::File& file) {
    return fs::guarded(target_.c_str(), false, [&] {
        const auto refuse = [this] { return fs::refuse_by_disk(target_.c_str(), "cannot be replaced"); };
        const auto place = [&] { return file.replace(beside_.c_str(), target_.c_str()) || refuse(); };
        // The content is on the disk before the name is; and nobody is kept from asking for names meanwhile.
        if (!file.sync()) return refuse();
        return enter_ ? enter_(place) : place();
    });
}

void ReplacingHandle::discard() {
    if (writer_ == nullptr) return;
    writer_->Release().remove(beside_.c_str());
    writer_.reset();
}
