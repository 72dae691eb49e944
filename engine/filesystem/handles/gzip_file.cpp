// zlib's declarations with 64-bit offsets on every system; its plain ones are 32 bits wide on Windows.
#define _LARGEFILE64_SOURCE 1
#if !defined(_LFS64_LARGEFILE)
#define _LFS64_LARGEFILE 1
#endif

#include "engine/filesystem/handles/gzip_file.h"

#include <algorithm>
#include <new>
#include <utility>

#include <zlib.h>

#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/log/message.h"

namespace {

constexpr MessageSource messages{"FileSystem", "engine/filesystem/files/filegzipped"};
constexpr std::uint64_t failed = ~std::uint64_t{0};
constexpr std::uint64_t largest_call = 1u << 30;  // what one call of the gz layer takes is 32 bits wide
constexpr unsigned buffer_size = 64 * 1024;

}  // namespace

FileGzipped* FileGzipped::Create(CFSSource* owner, platform::File file, const char* mode) {
    const int descriptor = file.duplicate_descriptor(mode[0] == 'w');
    if (descriptor < 0) return nullptr;
    const gzFile gz = gzdopen(descriptor, mode);
    if (gz == nullptr) {
        platform::close_descriptor(descriptor);
        return nullptr;
    }
    gzbuffer(gz, buffer_size);
    auto* const handle = new (std::nothrow) FileGzipped(owner, std::move(file), gz);
    if (handle == nullptr) gzclose(gz);
    return handle;
}

FileGzipped::FileGzipped(CFSSource* owner, platform::File file, gzFile_s* gz) : file_(std::move(file)), gz_(gz) {
    source = owner;
}

FileGzipped::~FileGzipped() {
    if (gzclose(gz_) != Z_OK) fs::set_error(EFSError::IO, name, "The gzip file could not be finished.");
}

std::uint64_t FileGzipped::read(void* buffer, std::uint64_t size) {
    std::uint64_t done = 0;
    while (done < size) {
        const auto piece = static_cast<unsigned>(std::min(size - done, largest_call));
        const int got = gzread(gz_, static_cast<char*>(buffer) + done, piece);
        if (ReportReadFailure(buffer, size, got)) return failed;
        if (got <= 0) return got < 0 ? failed : done;
        done += static_cast<unsigned>(got);
        if (static_cast<unsigned>(got) < piece) break;
    }
    return done;
}

/// Bytes of a damaged or truncated file are never given out as good, not even those before the damage.
bool FileGzipped::ReportReadFailure(const void* buffer, std::uint64_t size, int result) {
    int code = Z_OK;
    const char* const text = gzerror(gz_, &code);
    if (code >= 0) return false;
    const char* const words = text != nullptr ? text : "";
    fs::set_error(EFSError::BAD_FORMAT, name, std::string("The gzip file cannot be decoded: ") + words);
    log_message(messages, Log::ELevel::ERRR, __LINE__,
                "gzread failed: file=%p, buffer=%p, size=%u, read=%d, error=%d, msg=%s\n", static_cast<void*>(gz_),
                buffer, static_cast<unsigned>(size), result, code, words);
    return true;
}

std::uint64_t FileGzipped::write(const void* buffer, std::uint64_t size) {
    std::uint64_t done = 0;
    while (done < size) {
        const auto piece = static_cast<unsigned>(std::min(size - done, largest_call));
        const int put = gzwrite(gz_, static_cast<const char*>(buffer) + done, piece);
        if (put <= 0) {
            fs::set_error(EFSError::IO, name, "The gzip file cannot be written.");
            return done != 0 ? done : failed;
        }
        done += static_cast<unsigned>(put);
    }
    return done;
}

bool FileGzipped::seek(std::int64_t offset, EFSSeek::TYPE origin) {
    return gzseek64(gz_, offset, static_cast<int>(origin)) != -1;
}

std::uint64_t FileGzipped::length() { return failed; }
std::uint64_t FileGzipped::tell() { return static_cast<std::uint64_t>(gztell64(gz_)); }
