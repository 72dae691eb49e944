#pragma once

#include <cstdint>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/file.h>
#include <engine/filesystem/log.h>
#include <engine/filesystem/streams/ifile.h>
#include <engine/kernel/ztl.h>

namespace fs {

/// The stream over an open file.
///
/// Owns     its handle, from open or open_from_handle until close or destruction. Both replace a handle that is there
///          without closing it: close first.
/// Closed   sizes are all bits set, answers false, name() null; reads and writes say so in fs::last_error.
/// Failure  what the handle answers, with its reason in fs::last_error; the end of the file never sets it.
/// Threads  one at a time.
class ENGINE_FS_API file : public ifile {
public:
    file();
    explicit file(SFsFile* handle);
    ~file() override;
    file(const file&) = delete;
    file& operator=(const file&) = delete;

    /// By virtual name, see fs::open.
    bool open(const char* name, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE) override;
    void close() override;
    std::uint64_t length() override;
    std::uint64_t tell() override;
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override;
    std::uint64_t read(void* buffer, std::uint64_t size) override;
    std::uint64_t write(const void* data, std::uint64_t size) override;
    void set_eof() override;
    const char* name() const override;
    /// Takes over `handle`, null too. True.
    virtual bool open_from_handle(SFsFile* handle);

    bool is_handle_valid() const { return handle != nullptr; }

protected:
    SFsFile* handle = nullptr;
};

/// The same over a native path: no source is asked.
class ENGINE_FS_API file_native : public file {
public:
    using file::file;

    bool open(const char* name, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE) override;
};

/// Turns each write into one log message of a level and category. Levels VERB and above are never written.
class ENGINE_FS_API file_dbgoutput : public file {
public:
    /// Level DEBG. A null category is "".
    explicit file_dbgoutput(const char* category);
    file_dbgoutput(Log::ELevel::TYPE level, const char* category);
    ~file_dbgoutput() override;

    /// Always `size`.
    std::uint64_t write(const void* data, std::uint64_t size) override;

    void set_level_category(Log::ELevel::TYPE level, const char* category);

private:
    Log::ELevel::TYPE level_;
    ztl::string_base<char> category_;
};

}  // namespace fs
