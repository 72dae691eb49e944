// Zip files by miniz's writer. It gets its bytes to the disk through a file of ours, opened at the native path that the
// virtual one leads to.
//
// A handle is a number in disguise that is never given out twice, so that closing it again, by a copy of an Archive or
// by mistake, finds nothing instead of a freed or somebody else's archive.

#include <engine/filesystem/containers/zip.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

#include <miniz.h>

#include <engine/filesystem/access/open.h>

#include "engine/filesystem/containers/zip_output.h"
#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/open_file.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/platform/threads.h"

namespace MiniZ {

namespace {

constexpr mz_uint deflate_level = 6;

struct Writer {
    mz_zip_archive zip{};
    fs::ZipOutput output;
    tdefl_compressor compressor;
    bool disk_failed = false;  // in the present call, and fs::last_error has the reason

    ~Writer() { mz_zip_writer_end(&zip); }
};

/// The archives under way.
struct Writers {
    platform::Mutex lock;
    std::unordered_map<std::uintptr_t, std::unique_ptr<Writer>> open ENGINE_GUARDED_BY(lock);
    std::uintptr_t last_handle ENGINE_GUARDED_BY(lock) = 0;
};

// An Archive of static storage is closed at exit.
Writers& writers() { return platform::never_destroyed<Writers>(); }

size_t write_to_output(void* to, mz_uint64 offset, const void* data, size_t size) {
    auto& writer = *static_cast<Writer*>(to);
    if (writer.output.write_at(offset, data, size)) return size;
    writer.disk_failed = true;
    return 0;
}

// miniz forgets to free its compressor when a header cannot be written. So it gets the writer's own one each time.

void* allocate(void* for_writer, size_t count, size_t size) {
    if (size == sizeof(tdefl_compressor)) return &static_cast<Writer*>(for_writer)->compressor;
    return std::calloc(count, size);
}

void release(void* for_writer, void* block) {
    if (block != &static_cast<Writer*>(for_writer)->compressor) std::free(block);
}

/// False, with the reason of miniz in fs::last_error; a failure of the disk stands, whatever miniz makes of it.
bool fail(Writer& writer, const char* name) {
    const mz_zip_error error = mz_zip_get_last_error(&writer.zip);
    if (std::exchange(writer.disk_failed, false)) return false;
    const auto code = error == MZ_ZIP_ALLOC_FAILED     ? EFSError::OUT_OF_MEMORY
                      : error == MZ_ZIP_FILE_TOO_LARGE ? EFSError::TOO_LARGE
                                                       : EFSError::INVALID_ARGUMENT;
    fs::set_error(code, name, std::string("The zip writer fails: ") + mz_zip_get_error_string(error) + ".");
    return false;
}

bool start(Writer& writer, const char* path) {
    // The file exists then, is empty and can be found again, by the rules of the sources.
    if (!fs::FilePtr(fs::open(path, EFSMode::WRITE, FFSOpenFlags::CREATE))) return false;
    const fs::ErrorScope scope;
    const fs::string native_path = fs::full_path(path);
    if (!fs::is_full_path(native_path.c_str()))
        return fs::fail_unless_told(scope, EFSError::UNSUPPORTED, path, "The file is not on the disk.");
    if (!writer.output.open(native_path.c_str())) return false;
    writer.zip.m_pAlloc = allocate;
    writer.zip.m_pFree = release;
    writer.zip.m_pWrite = write_to_output;
    writer.zip.m_pAlloc_opaque = writer.zip.m_pIO_opaque = &writer;
    return mz_zip_writer_init(&writer.zip, 0) != MZ_FALSE || fail(writer, path);
}

void* hand_out(std::unique_ptr<Writer> writer) {
    Writers& all = writers();
    const platform::LockGuard guard(all.lock);
    const std::uintptr_t handle = ++all.last_handle;
    all.open.emplace(handle, std::move(writer));
    return reinterpret_cast<void*>(handle);
}

Writer* find(void* handle) {
    Writers& all = writers();
    const platform::LockGuard guard(all.lock);
    const auto found = all.open.find(reinterpret_cast<std::uintptr_t>(handle));
    return found == all.open.end() ? nullptr : found->second.get();
}

std::unique_ptr<Writer> take_back(void* handle) {
    Writers& all = writers();
    const platform::LockGuard guard(all.lock);
    auto found = all.open.extract(reinterpret_cast<std::uintptr_t>(handle));
    return found.empty() ? nullptr : std::move(found.mapped());
}

}  // namespace

void* ZipCreate(const char* path) {
    return fs::guarded(path, static_cast<void*>(nullptr), [path]() -> void* {
        auto writer = std::make_unique<Writer>();
        return start(*writer, path) ? hand_out(std::move(writer)) : nullptr;
    });
}

bool ZipAddData(void* handle, const char* name, const void* data, unsigned int size) {
    if (!handle || !name || *name == '\0' || !data || size == 0)
        return fs::refuse(EFSError::INVALID_ARGUMENT, name,
                          "An entry of a zip file needs an archive, a name and data.");
    return fs::guarded(name, false, [&] {
        Writer* const writer = find(handle);
        if (!writer) return fs::refuse(EFSError::INVALID_ARGUMENT, name, "The zip file is closed.");
        return mz_zip_writer_add_mem(&writer->zip, name, data, size, deflate_level) != MZ_FALSE || fail(*writer, name);
    });
}

void ZipClose(void* handle) {
    if (!handle) return;
    fs::guarded("", [&] {
        const std::unique_ptr<Writer> writer = take_back(handle);
        if (!writer) return;
        const bool whole = mz_zip_writer_finalize_archive(&writer->zip) != MZ_FALSE || fail(*writer, "");
        if (whole) writer->output.finish(writer->zip.m_archive_size);
    });
}

Archive::Archive() = default;
Archive::Archive(const char* path) : handle_(ZipCreate(path)) {}
Archive::Archive(const Archive& other) = default;
Archive& Archive::operator=(const Archive& other) = default;
Archive::~Archive() { ZipClose(handle_); }

bool Archive::Create(const char* path) {
    ZipClose(handle_);
    handle_ = ZipCreate(path);
    return handle_ != nullptr;
}

bool Archive::AddData(const char* name, const void* data, unsigned int size) {
    return ZipAddData(handle_, name, data, size);
}

bool Archive::AddData(const char* name, const ztl::string_base<char>& text) {
    if (text.size() > 0xFFFFFFFFu)
        return fs::refuse(EFSError::TOO_LARGE, name, "An entry of a zip file has at most 4 GiB.");
    return ZipAddData(handle_, name, text.data(), static_cast<unsigned int>(text.size()));
}

}  // namespace MiniZ
