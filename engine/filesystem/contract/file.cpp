// What open files do where their kind says nothing else, and the free functions over them.
#include "engine/filesystem/contract/open_file.h"

#include <cstdlib>

#include <engine/filesystem/contract/replacing_file.h>

#include "engine/filesystem/contract/failure.h"

constexpr int overlapped_failed = 2;

SFsFile::SFsFile() = default;
SFsFile::~SFsFile() { std::free(name); }

bool SFsFile::read_async(void*, std::uint64_t, std::uint64_t, SFsRequest*, std::uint32_t) {
    return fs::refuse(EFSError::UNSUPPORTED, name,
                      "This kind of file has no asynchronous reads; fs::load_async loads from any.");
}
bool SFsFile::write_async(const void*, std::uint64_t, std::uint64_t, SFsRequest*, std::uint32_t) {
    return fs::refuse(EFSError::UNSUPPORTED, name, "This kind of file has no asynchronous writes.");
}
bool SFsFile::set_eof() {
    return fs::refuse(EFSError::UNSUPPORTED, name, "This kind of file cannot be cut or extended.");
}
void SFsFile::cancel_async(SFsRequest*) {}
bool SFsFile::cancel_io() { return false; }
int SFsFile::read_overlapped(void*, std::uint32_t, std::uint32_t*, SNativeOverlapped*) { return overlapped_failed; }
int SFsFile::write_overlapped(void*, std::uint32_t, std::uint32_t*, SNativeOverlapped*) { return overlapped_failed; }

namespace fs {

void close(SFsFile* file) { delete file; }

bool commit(SFsFile* file) {
    if (file == nullptr) return refuse(EFSError::INVALID_ARGUMENT, nullptr, "There is no file to commit.");
    const ErrorScope scope;
    auto* const replacing = dynamic_cast<ReplacingFile*>(file);
    const bool is_placed = replacing == nullptr || replacing->commit();
    close(file);
    return is_placed && (replacing != nullptr || !scope.has_error());
}

void discard(SFsFile* file) {
    if (auto* const replacing = dynamic_cast<ReplacingFile*>(file)) replacing->discard();
    close(file);
}

std::uint64_t read(SFsFile* file, void* buffer, std::uint64_t size) {
    return file != nullptr ? file->read(buffer, size) : failed_size;
}

std::uint64_t write(SFsFile* file, const void* buffer, std::uint64_t size) {
    return file != nullptr ? file->write(buffer, size) : failed_size;
}

std::uint64_t length(SFsFile* file) { return file != nullptr ? file->length() : failed_size; }
std::uint64_t tell(SFsFile* file) { return file != nullptr ? file->tell() : failed_size; }

bool seek(SFsFile* file, std::int64_t offset, EFSSeek::TYPE origin) {
    return file != nullptr && file->seek(offset, origin);
}

bool set_eof(SFsFile* file) { return file != nullptr && file->set_eof(); }

const char* file_name(SFsFile* file) {
    if (file == nullptr) return nullptr;
    return file->name != nullptr ? file->name : "";
}

bool write_all(SFsFile& file, const char* path, const void* data, std::uint64_t size) {
    ErrorScope scope;
    const auto* next = static_cast<const std::uint8_t*>(data);
    std::uint64_t done = 0;
    for (std::uint64_t left = size; left != 0; left -= done, next += done) {
        done = file.write(next, left);
        if (done != 0 && done <= left) continue;
        const bool is_full = done == 0 || left != size;
        return fail_unless_told(scope, is_full ? EFSError::DISK_FULL : EFSError::IO, path,
                                is_full ? "The file takes no more bytes." : "The file cannot be written.");
    }
    scope.forget();  // of a part that went after all
    return true;
}

}  // namespace fs
