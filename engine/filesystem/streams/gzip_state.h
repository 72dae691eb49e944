#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include <zlib.h>

#include <engine/filesystem/contract/error.h>
#include <engine/filesystem/streams/zipped_buffer.h>

#include "engine/filesystem/formats/deflate.h"
#include "engine/kernel/checksum.h"

namespace fs {

/// One gzip member being read or written.
struct izipped_buffer_file::State {
    static constexpr std::uint32_t buffer_size = 4096;

    explicit State(bool for_writing) : writing(for_writing) {}
    ~State() { end(); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    /// False without memory. May throw std::bad_alloc.
    bool begin();
    /// Of a writer: zlib's verdict on giving the stream back; Z_OK when there is none.
    int end();
    /// Whether the member or its storage has failed; last_error then says why, again.
    bool is_broken() const;
    void add_to_crc(const void* data, std::size_t size) { crc = kernel::crc32(crc, data, size); }
    /// Notes why the member is broken, unless that is known, and says so in last_error.
    void fail(int result, EFSError::TYPE code, const char* text);
    /// Notes what the decoder came to.
    void note(Decoder::Result result);
    /// Says again in last_error why the member is broken, when it is.
    void tell() const;

    z_stream stream = {};              // of a writer
    std::unique_ptr<Decoder> decoder;  // of a reader
    int z_err = Z_OK;  // zlib's last result; Z_ERRNO also at the end of the storage, Z_DATA_ERROR also for our checks
    EFSError::TYPE reason = EFSError::NONE;  // why z_err is a failure, and in words
    const char* words = "";
    bool z_eof = false;  // the storage is exhausted
    const bool writing;
    std::uint32_t crc = 0;          // of the plain bytes so far
    std::uint64_t total = 0;        // plain bytes so far; zlib's own count has 32 bits on Windows
    std::uint64_t start = 0;        // raw position behind the header
    Bytef buffer[buffer_size];      // compressed bytes: not yet inflated, or not yet written
    const Bytef* next_in = buffer;  // of those not yet inflated
    std::uint32_t left_in = 0;
    Bytef scratch[buffer_size] = {};  // what seeks discard, or zeros to fill with
};

}  // namespace fs
