#include <engine/filesystem/streams/file.h>

#include <algorithm>
#include <limits>

#include <engine/filesystem/access/open.h>
#include <engine/filesystem/handles.h>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/log/levels.h"

namespace fs {

namespace {

// Known to those who read and filter logs; not a place in this tree.
constexpr const char* log_source = "engine/filesystem/file";
constexpr int log_line = 314;

}  // namespace

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

file_dbgoutput::file_dbgoutput(const char* category) : file_dbgoutput(Log::ELevel::DEBG, category) {}

file_dbgoutput::file_dbgoutput(Log::ELevel::TYPE level, const char* category) : level_(level) {
    set_level_category(level, category);
}

file_dbgoutput::~file_dbgoutput() = default;

void file_dbgoutput::set_level_category(Log::ELevel::TYPE level, const char* category) {
    guarded(nullptr, [&] {
        category_ = category == nullptr ? "" : category;
        level_ = level;
    });
}

std::uint64_t file_dbgoutput::write(const void* data, std::uint64_t size) {
    if (level_ >= Log::ELevel::VERB || data == nullptr) return size;
    if (Log::Settings::Instance().GetCategoryLevel(category_.c_str()) < level_) return size;

    const auto length = static_cast<int>(std::min<std::uint64_t>(size, std::numeric_limits<int>::max()));
    _CLog(level_, category_.c_str(), log_source, log_line, _CLFilter(logging::level_id(level_)), CLLineMode::NEW_LINE,
          "%.*s", length, static_cast<const char*>(data));
    return size;
}

}  // namespace fs
