// zlib's declarations with 64-bit offsets on every system; its plain ones are 32 bits wide on Windows.
#define _LARGEFILE64_SOURCE 1
#if !defined(_LFS64_LARGEFILE)
#define _LFS64_LARGEFILE 1
#endif

#include "engine/filesystem/handles/native_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include <zlib.h>

#include "engine/filesystem/contract/disk_use_scope.h"
#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/log/message.h"
#include "engine/platform/text.h"

namespace {

constexpr MessageSource messages{"FileSystem", "engine/filesystem/files/filegzipped"};
constexpr std::uint64_t largest_call = 1u << 30;  // what one call of the gz layer takes is 32 bits wide
constexpr unsigned buffer_size = 64 * 1024;

EFSError::TYPE kind_of(int code) {
    if (code == Z_ERRNO) return EFSError::IO;
    return code == Z_MEM_ERROR ? EFSError::OUT_OF_MEMORY : EFSError::BAD_FORMAT;
}

}  // namespace

bool FileGzipped::Attach(platform::File file, const char* path, const char* mode) {
    writes_ = mode[0] == 'w';
    const int descriptor = file.duplicate_descriptor(writes_);
    if (descriptor < 0) return fs::refuse_by_disk(path, "cannot be opened");
    if (writes_ && !file.set_end()) {
        fs::refuse_by_disk(path, "cannot be emptied");
        platform::close_descriptor(descriptor);
        return false;
    }
    gz_ = gzdopen(descriptor, mode);
    if (gz_ == nullptr) {
        platform::close_descriptor(descriptor);
        return fs::refuse(EFSError::OUT_OF_MEMORY, path, "There is no memory for a gzip file.");
    }
    gzbuffer(gz_, buffer_size);
    file_ = std::move(file);
    return true;
}

void FileGzipped::Finish() {
    gzFile_s* const gz = gz_;
    if (gz == nullptr) return;
    if (writes_) FillGapAtStart();
    errno = 0;
    gz_ = nullptr;
    const int result = gzclose(gz);
    // What was wrong with a read has been told by it.
    if (writes_ && result != Z_OK) ReportWriteFailure(result, "cannot be finished as gzip");
}

platform::File FileGzipped::Release() {
    Finish();
    return std::move(file_);
}

/// zlib fills the gap of a seek from its buffer, which it has not cleared yet when nothing was written before closing.
void FileGzipped::FillGapAtStart() {
    const z_off64_t end = gztell64(gz_);
    if (is_untouched_ && end > 0 && gzseek64(gz_, end - 1, SEEK_SET) != -1) gzwrite(gz_, "", 1);
}

std::uint64_t FileGzipped::read(void* buffer, std::uint64_t size) {
    if (writes_ && size != 0) return fs::fail(EFSError::INVALID_ARGUMENT, "The gzip file is open for writing.", name);
    const fs::DiskUse use("read", fs::file_name(this));
    std::uint64_t done = 0;
    while (done < size) {
        const auto piece = static_cast<unsigned>(std::min(size - done, largest_call));
        const int got = gzread(gz_, static_cast<char*>(buffer) + done, piece);
        if (ReportReadFailure(buffer, size, got)) return fs::failed_size;
        done += static_cast<unsigned>(got);
        if (static_cast<unsigned>(got) < piece) break;
    }
    return done;
}

/// Bytes of a damaged or truncated file are never given out as good, not even those before the damage.
bool FileGzipped::ReportReadFailure(const void* buffer, std::uint64_t size, int result) {
    int code = Z_OK;
    const char* const text = gzerror(gz_, &code);
    if (code >= 0 && result >= 0) return false;
    const char* const words = text != nullptr ? text : "";
    char told[256];
    fs::set_error(kind_of(code), name,
                  platform::BoundedText(told).add("The gzip file cannot be decoded: ").add(words).view());
    log_message(messages, Log::ELevel::ERRR, __LINE__,
                "gzread failed: file=%p, buffer=%p, size=%u, read=%d, error=%d, msg=%s\n", static_cast<void*>(gz_),
                buffer, static_cast<unsigned>(size), result, code, words);
    return true;
}

/// Of a failing system zlib tells no more; its errno is still there.
void FileGzipped::ReportWriteFailure(int result, const char* action) const {
    const int code = errno;
    const bool is_full = code == ENOSPC || code == EFBIG;
    auto failure = is_full ? platform::Failure::DISK_FULL : platform::Failure::IO;
    if (result == Z_MEM_ERROR) failure = platform::Failure::OUT_OF_MEMORY;
    fs::set_error_from_platform(name, action, {.failure = failure, .os_code = code});
}

std::uint64_t FileGzipped::write(const void* buffer, std::uint64_t size) {
    if (!writes_ && size != 0) return fs::fail(EFSError::INVALID_ARGUMENT, "The gzip file is open for reading.", name);
    if (size != 0) is_untouched_ = false;
    errno = 0;
    std::uint64_t done = 0;
    while (done < size) {
        const auto piece = static_cast<unsigned>(std::min(size - done, largest_call));
        const int put = gzwrite(gz_, static_cast<const char*>(buffer) + done, piece);
        if (put <= 0) {
            int result = Z_OK;
            gzerror(gz_, &result);
            ReportWriteFailure(result, "cannot be written as gzip");
            return done != 0 ? done : fs::failed_size;
        }
        done += static_cast<unsigned>(put);
    }
    return done;
}

bool FileGzipped::seek(std::int64_t offset, EFSSeek::TYPE origin) {
    return gzseek64(gz_, offset, static_cast<int>(origin)) != -1 ||
           fs::refuse(EFSError::UNSUPPORTED, name, "A gzip file goes to no such position.");
}

std::uint64_t FileGzipped::length() { return fs::failed_size; }
std::uint64_t FileGzipped::tell() { return static_cast<std::uint64_t>(gztell64(gz_)); }
