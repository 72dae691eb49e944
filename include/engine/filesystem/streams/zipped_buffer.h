#pragma once

#include <cstdint>

#include <engine/filesystem/api.h>
#include <engine/filesystem/streams/ifile.h>

namespace fs {

/// A stream over six raw storage operations that a derived class supplies. Switched to zip, it reads or writes one gzip
/// member in them, with its checksum. The order of the virtual operations is part of the contract.
///
/// Zipped   one direction for the life of the member. Reading seeks both ways (backwards by starting afresh), writing
///          forwards only, filling with zeros; END is refused; tell() counts plain bytes and length() raw ones.
/// Errors   a damaged or truncated member, or a storage that fails: reads give 0, tell() all bits set, seeks false, until
///          the member is opened again. Each such call sets fs::last_error; the end of a good member never does.
/// Threads  one at a time.
/// Close    close() writes what is pending and the trailer. Destruction frees memory and writes nothing, since the
///          storage may be gone by then.
class ENGINE_FS_API izipped_buffer_file : public ifile {
public:
    static const unsigned char gz_magic[2];  // how a gzip member begins

    izipped_buffer_file();
    ~izipped_buffer_file() override;
    izipped_buffer_file(const izipped_buffer_file&) = delete;
    izipped_buffer_file& operator=(const izipped_buffer_file&) = delete;

    /// Always false, UNSUPPORTED: these streams open through init or open_from_memory.
    bool open(const char* name, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE) override;
    void close() override;
    std::uint64_t length() override;
    std::uint64_t tell() override;
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override;
    std::uint64_t read(void* buffer, std::uint64_t size) override;
    std::uint64_t write(const void* data, std::uint64_t size) override;
    void set_eof() override;
    const char* name() const override;  // null

    /// READ or WRITE only. With `zip` a header is read or written at once. Where none can be read, or there is no memory,
    /// the stream is left plain, at position 0; a storage that does not take one fails what is written.
    virtual bool init(EFSMode::TYPE mode, bool zip);
    /// Writes what is pending and the trailer, once. False when not zipped. True also when the storage does not take it
    /// all: fs::last_error then tells, after close too.
    virtual bool finish();
    /// The raw position of a zipped stream, 0 before its member is begun; length() of a plain one.
    virtual std::uint64_t length_zipped();
    virtual bool is_zipped();
    /// Ends the compressed data: nothing can be written after it.
    virtual void flush();
    /// Reads on to the end of the member and comes back. True when the member was whole.
    virtual bool check_zip_crc();

protected:
    virtual bool check_header();
    virtual std::int64_t zip_rewind();
    virtual std::int64_t seek_zipped(std::int64_t offset, EFSSeek::TYPE origin);
    virtual std::int64_t tell_zipped();
    virtual bool flush_zip_stream();
    virtual unsigned char get_byte();  // 255 at the end of the storage
    virtual std::uint32_t get_long();
    virtual void put_long(std::uint32_t value);
    virtual void use_zip(bool on);
    virtual bool init_zip_stream(EFSMode::TYPE mode);
    virtual bool destroy_zip_stream();
    virtual std::uint64_t has_to_delete_buffer();
    virtual void delete_buffer();

public:
    // The raw storage.
    virtual std::uint64_t write_data(const void* data, std::uint64_t size) = 0;
    virtual std::uint64_t read_data(void* buffer, std::uint64_t size) = 0;
    virtual std::uint64_t get_size() = 0;
    virtual bool set_size(std::uint64_t size) = 0;
    virtual std::uint64_t get_current_pos() = 0;
    virtual bool set_current_pos(std::int64_t position) = 0;

private:
    struct State;

    bool begin_reading();
    bool begin_writing();
    bool refill();
    std::uint32_t deflate_slice(const unsigned char* data, std::uint32_t size);
    std::uint32_t inflate_slice(unsigned char* out, std::uint32_t size);
    void check_trailer();
    void skip_bytes(std::uint32_t count);
    void skip_text();
    bool write_pending();
    bool store(const unsigned char* data, std::uint32_t size);
    std::int64_t seek_writing(std::int64_t offset, EFSSeek::TYPE origin);
    std::int64_t seek_reading(std::int64_t offset, EFSSeek::TYPE origin);

    bool zipped_ = false;
    bool finished_ = false;  // the trailer has been written
    State* zip_ = nullptr;   // null while no member is open
};

}  // namespace fs
