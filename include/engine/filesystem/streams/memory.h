#pragma once

#include <cstdint>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/file.h>
#include <engine/filesystem/streams/zipped_buffer.h>
#include <engine/kernel/ztl.h>

namespace fs {

/// A stream over a block of the caller's memory, which must outlive it. What does not fit is dropped, and the count
/// says so; fs::last_error stays as it is. One thread at a time.
class ENGINE_FS_API memfile : public izipped_buffer_file {
public:
    memfile();
    ~memfile() override;

    /// The block holds `capacity` bytes: all of them data for READ, none for WRITE.
    virtual bool open_from_memory(EFSMode::TYPE mode, unsigned char* buffer, std::uint64_t capacity, bool zip);

    std::uint64_t write_data(const void* data, std::uint64_t size) override;
    std::uint64_t read_data(void* buffer, std::uint64_t size) override;
    std::uint64_t get_size() override;
    bool set_size(std::uint64_t size) override;
    std::uint64_t get_current_pos() override;
    bool set_current_pos(std::int64_t position) override;

private:
    unsigned char* buffer_ = nullptr;
    std::uint64_t size_ = 0;
    std::uint64_t capacity_ = 0;
    std::uint64_t pos_ = 0;
};

/// A stream over a vector of the caller's, which must outlive it and grows as needed. Its contents are kept, for WRITE
/// too. Seeking past the end extends it with zeros. Without memory a write returns 0 and a seek false, the vector as it
/// was and the reason in fs::last_error. One thread at a time, with the vector.
class ENGINE_FS_API vectorfile : public izipped_buffer_file {
public:
    vectorfile();
    ~vectorfile() override;

    virtual bool open_from_memory(EFSMode::TYPE mode, ztl::vector<unsigned char>* vector, bool zip);

    std::uint64_t write_data(const void* data, std::uint64_t size) override;
    std::uint64_t read_data(void* buffer, std::uint64_t size) override;
    std::uint64_t get_size() override;
    bool set_size(std::uint64_t size) override;
    std::uint64_t get_current_pos() override;
    bool set_current_pos(std::int64_t position) override;

private:
    ztl::vector<unsigned char>* vector_ = nullptr;
    std::uint64_t pos_ = 0;
};

}  // namespace fs

/// An open file whose bytes lie in memory.
///
/// Owns     `buffer`, a block of the C allocator, from construction on.
/// Failure  writes, and reads of a null block: all bits set, the reason in fs::last_error; the end never sets it.
/// Threads  one at a time.
class ENGINE_FS_API FileInMemory : public SFsFile {
public:
    FileInMemory(void* buffer, std::uint64_t size);
    ~FileInMemory() override;

    /// A new file over `buffer`; null, with `buffer` freed, without memory.
    static FileInMemory* create(void* buffer, std::uint64_t size);

    std::uint64_t read(void* buffer, std::uint64_t size) override;
    std::uint64_t write(const void* buffer, std::uint64_t size) override;
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override;
    std::uint64_t length() override;
    std::uint64_t tell() override;

private:
    void* buffer_;
    fs::memfile stream_;
};
