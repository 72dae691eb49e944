// One gzip member over six storage operations. The raw deflate data is the libraries'; header, checksum and trailer are ours.
//
// Compressed bytes move in blocks of 4096, so the raw position of a reader is ahead of what has been decoded by up to that
// much, and never more: the decoder gives all that it can make of a block before the next one is read. The plain bytes go
// straight between it and the caller, in slices that are still in the processor's cache when their checksum is taken.
#include <engine/filesystem/streams/zipped_buffer.h>

#include <algorithm>
#include <memory>
#include <new>

#include <zlib.h>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/formats/deflate.h"
#include "engine/kernel/bytes.h"

namespace fs {

namespace {

constexpr std::uint64_t slice_size = 256 * 1024;
constexpr std::int64_t crc_step = 0x200000;
constexpr int raw_window_bits = -15;
constexpr int memory_level = 8;
constexpr unsigned char end_byte = 255;

enum HeaderFlag : unsigned char { HEADER_CRC = 2, EXTRA_FIELD = 4, FILE_NAME = 8, COMMENT = 16, RESERVED = 0xE0 };

}  // namespace

const unsigned char izipped_buffer_file::gz_magic[2] = {0x1F, 0x8B};

/// One gzip member being read or written.
struct izipped_buffer_file::State {
    static constexpr std::uint32_t buffer_size = 4096;

    /// Throws std::bad_alloc.
    explicit State(bool for_writing) : writing(for_writing) {
        if (writing) {
            stream.next_out = buffer;
            stream.avail_out = buffer_size;
            z_err = deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, raw_window_bits, memory_level,
                                 Z_DEFAULT_STRATEGY);
        } else {
            decoder = make_inflater();
        }
        if (z_err != Z_OK || (decoder != nullptr && !decoder->start())) throw std::bad_alloc();
    }
    ~State() { end(); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    /// Of a writer: zlib's verdict on giving the stream back; Z_OK when there is none.
    int end() { return stream.state == nullptr ? Z_OK : deflateEnd(&stream); }
    /// Whether the member or its storage has failed; last_error then says why, again.
    bool is_broken() const {
        if (z_err != Z_DATA_ERROR && z_err != Z_ERRNO) return false;
        tell();
        return true;
    }
    /// Counts plain bytes.
    void count(const void* data, std::uint32_t size) {
        crc = kernel::crc32(crc, data, size);
        total += size;
    }
    /// Notes why the member is broken, unless that is known, and says so in last_error.
    void fail(int result, EFSError::TYPE code, const char* text) {
        z_err = result;
        if (reason == EFSError::NONE) {
            reason = code;
            words = text;
        }
        tell();
    }
    /// The same where the storage failed: what it has told since `scope` began is the better reason.
    void fail(const ErrorScope& scope, EFSError::TYPE otherwise, const char* text) {
        fail(Z_ERRNO, scope.has_error() ? last_error().code : otherwise, text);
    }
    /// Says again in last_error why the member is broken, when it is.
    void tell() const {
        if (reason != EFSError::NONE) set_error(reason, "", words);
    }

    z_stream stream = {};              // of a writer
    std::unique_ptr<Decoder> decoder;  // of a reader
    int z_err = Z_OK;  // zlib's last result; Z_ERRNO also at the end of the storage, Z_DATA_ERROR also for our checks
    EFSError::TYPE reason = EFSError::NONE;  // why z_err is a failure, and in words
    const char* words = "";
    const bool writing;
    std::uint32_t crc = 0;          // of the plain bytes so far
    std::uint64_t total = 0;        // plain bytes so far; zlib's own count has 32 bits on Windows
    std::uint64_t start = 0;        // raw position behind the header
    Bytef buffer[buffer_size];      // compressed bytes: not yet inflated, or not yet written
    const Bytef* next_in = buffer;  // of those not yet inflated
    std::uint32_t left_in = 0;
    Bytef scratch[buffer_size] = {};  // what seeks discard, or zeros to fill with
};

izipped_buffer_file::izipped_buffer_file() = default;

izipped_buffer_file::~izipped_buffer_file() { delete zip_; }

bool izipped_buffer_file::open(const char* name, EFSMode::TYPE, FFSOpenFlags::FLAGS) {
    return refuse(EFSError::UNSUPPORTED, name, "A stream over memory is not opened by name.");
}

void izipped_buffer_file::close() {
    if (zipped_) {
        finish();
        destroy_zip_stream();
    }
    if (has_to_delete_buffer() != 0) delete_buffer();
}

std::uint64_t izipped_buffer_file::length() { return get_size(); }

std::uint64_t izipped_buffer_file::tell() {
    return zipped_ ? static_cast<std::uint64_t>(tell_zipped()) : get_current_pos();
}

bool izipped_buffer_file::seek(std::int64_t offset, EFSSeek::TYPE origin) {
    if (zipped_) return seek_zipped(offset, origin) != -1;
    if (origin > EFSSeek::END) return false;
    const std::uint64_t from = origin == EFSSeek::BEGIN     ? 0
                               : origin == EFSSeek::CURRENT ? get_current_pos()
                                                            : get_size();
    return set_current_pos(static_cast<std::int64_t>(from + static_cast<std::uint64_t>(offset)));
}

void izipped_buffer_file::set_eof() {
    if (!zipped_) set_size(get_current_pos());
}

const char* izipped_buffer_file::name() const { return nullptr; }

bool izipped_buffer_file::init(EFSMode::TYPE mode, bool zip) {
    if (mode != EFSMode::READ && mode != EFSMode::WRITE)
        return refuse(EFSError::INVALID_ARGUMENT, "", "A stream over memory is opened to read or to write.");
    use_zip(zip);
    if (!zip || init_zip_stream(mode)) return true;
    use_zip(false);
    return false;
}

std::uint64_t izipped_buffer_file::length_zipped() {
    if (!zipped_) return length();
    return zip_ == nullptr ? 0 : get_current_pos();
}

bool izipped_buffer_file::is_zipped() { return zipped_; }

void izipped_buffer_file::use_zip(bool on) { zipped_ = on; }

std::uint64_t izipped_buffer_file::has_to_delete_buffer() { return 0; }

void izipped_buffer_file::delete_buffer() {}

bool izipped_buffer_file::init_zip_stream(EFSMode::TYPE mode) {
    if (!zipped_) return false;
    const bool writing = mode == EFSMode::WRITE;
    if (zip_ != nullptr && zip_->writing == writing) return true;
    if (zip_ != nullptr) return refuse(EFSError::INVALID_ARGUMENT, "", "A gzip member is either read or written.");
    guarded("", [&] { zip_ = new State(writing); });
    if (zip_ != nullptr && (writing ? begin_writing() : begin_reading())) return true;
    destroy_zip_stream();
    set_current_pos(0);
    return false;
}

bool izipped_buffer_file::destroy_zip_stream() {
    if (zip_ == nullptr) return false;
    const bool good = zip_->z_err >= 0;
    const bool ended = zip_->end() == Z_OK;
    delete zip_;
    zip_ = nullptr;
    use_zip(false);
    return good && ended;
}

bool izipped_buffer_file::begin_writing() {
    finished_ = false;
    const unsigned char header[10] = {gz_magic[0], gz_magic[1], Z_DEFLATED, 0, 0, 0, 0, 0, 0, 11};
    zip_->start = sizeof(header);
    store(header, sizeof(header));
    return true;
}

std::uint64_t izipped_buffer_file::write(const void* data, std::uint64_t size) {
    if (!zipped_) return write_data(data, size);
    if (!init_zip_stream(EFSMode::WRITE) || zip_->is_broken()) return 0;
    const auto* in = static_cast<const Bytef*>(data);
    std::uint64_t done = 0;
    while (done < size) {
        const std::uint64_t slice = std::min(size - done, slice_size);
        const std::uint64_t consumed = deflate_slice(in + done, static_cast<std::uint32_t>(slice));
        done += consumed;
        if (consumed == slice) continue;
        if (!zip_->is_broken()) set_error(EFSError::INVALID_ARGUMENT, "", "The gzip member is finished.");
        break;
    }
    return done;
}

/// Bytes that the compressor took; all of them unless it or the storage failed.
std::uint32_t izipped_buffer_file::deflate_slice(const unsigned char* data, std::uint32_t size) {
    z_stream& stream = zip_->stream;
    stream.next_in = const_cast<Bytef*>(data);  // zlib reads only
    stream.avail_in = size;
    while (stream.avail_in != 0) {
        if (stream.avail_out == 0 && !write_pending()) break;
        zip_->z_err = deflate(&stream, Z_NO_FLUSH);
        if (zip_->z_err != Z_OK) break;
    }
    const std::uint32_t consumed = size - stream.avail_in;
    zip_->count(data, consumed);
    return consumed;
}

/// The storage fails the stream by taking less.
bool izipped_buffer_file::store(const unsigned char* data, std::uint32_t size) {
    const ErrorScope scope;
    if (write_data(data, size) == size) return true;
    zip_->fail(scope, EFSError::DISK_FULL, "The storage of the gzip stream does not take what is written.");
    return false;
}

/// Hands the output so far to the storage, which fails the stream by taking less.
bool izipped_buffer_file::write_pending() {
    z_stream& stream = zip_->stream;
    const std::uint32_t size = State::buffer_size - stream.avail_out;
    if (size != 0 && !store(zip_->buffer, size)) return false;
    stream.next_out = zip_->buffer;
    stream.avail_out = State::buffer_size;
    return true;
}

void izipped_buffer_file::flush() {
    if (zipped_ && zip_ != nullptr && zip_->writing) flush_zip_stream();
}

bool izipped_buffer_file::flush_zip_stream() {
    if (zip_ == nullptr || !zip_->writing || zip_->is_broken()) return false;
    z_stream& stream = zip_->stream;
    stream.avail_in = 0;
    do {
        if (!write_pending()) return false;
        zip_->z_err = deflate(&stream, Z_FINISH);
    } while (zip_->z_err == Z_OK);
    return zip_->z_err == Z_STREAM_END && write_pending();
}

bool izipped_buffer_file::finish() {
    if (!zipped_) return false;
    if (zip_ != nullptr && zip_->writing && !finished_ && flush_zip_stream()) {
        put_long(zip_->crc);
        put_long(static_cast<std::uint32_t>(zip_->total));
        finished_ = true;
    }
    if (zip_ != nullptr && zip_->writing) zip_->tell();
    return true;
}

void izipped_buffer_file::put_long(std::uint32_t value) {
    std::uint8_t bytes[4];
    kernel::store_u32(bytes, value);
    if (zip_ != nullptr)
        store(bytes, sizeof(bytes));
    else
        write_data(bytes, sizeof(bytes));
}

/// Reads the next block. False, with the failure noted, when not a byte is left.
bool izipped_buffer_file::refill() {
    const ErrorScope scope;
    const std::uint64_t got = read_data(zip_->buffer, State::buffer_size);
    zip_->next_in = zip_->buffer;
    zip_->left_in =
        got <= State::buffer_size ? static_cast<std::uint32_t>(got) : 0;  // a caller's storage may say anything
    if (zip_->left_in != 0) return true;
    if (got == 0)
        zip_->fail(scope, EFSError::BAD_FORMAT, "The gzip member ends too early.");
    else
        zip_->fail(scope, EFSError::IO, "The storage of the gzip stream cannot be read.");
    return false;
}

unsigned char izipped_buffer_file::get_byte() {
    if (zip_ == nullptr || zip_->writing || zip_->z_err == Z_ERRNO) return end_byte;
    if (zip_->left_in == 0 && !refill()) return end_byte;
    --zip_->left_in;
    return *zip_->next_in++;
}

std::uint32_t izipped_buffer_file::get_long() {
    std::uint8_t bytes[4];
    for (std::uint8_t& byte : bytes) byte = get_byte();
    return kernel::load_u32(bytes);
}

// A byte of 255 is not the end: only z_err tells.
void izipped_buffer_file::skip_bytes(std::uint32_t count) {
    while (count-- != 0 && zip_->z_err != Z_ERRNO) get_byte();
}

void izipped_buffer_file::skip_text() {
    while (get_byte() != 0 && zip_->z_err != Z_ERRNO) continue;
}

bool izipped_buffer_file::check_header() {
    if (zip_ == nullptr || zip_->writing) return false;
    const bool magic = get_byte() == gz_magic[0] && get_byte() == gz_magic[1];
    const unsigned char method = magic ? get_byte() : 0;
    const unsigned char flags = magic ? get_byte() : 0;
    if (method != Z_DEFLATED || (flags & RESERVED) != 0) {
        zip_->fail(Z_DATA_ERROR, EFSError::BAD_FORMAT, "No gzip member that is known begins here.");
        return false;
    }
    skip_bytes(6);  // time, extra flags, operating system
    if ((flags & EXTRA_FIELD) != 0) {
        const std::uint32_t low = get_byte();
        skip_bytes(low | static_cast<std::uint32_t>(get_byte()) << 8);
    }
    if ((flags & FILE_NAME) != 0) skip_text();
    if ((flags & COMMENT) != 0) skip_text();
    if ((flags & HEADER_CRC) != 0) skip_bytes(2);
    if (zip_->z_err == Z_ERRNO) return false;
    zip_->z_err = Z_OK;
    return true;
}

bool izipped_buffer_file::begin_reading() {
    if (!check_header()) return false;
    zip_->start = get_current_pos() - zip_->left_in;
    return true;
}

std::uint64_t izipped_buffer_file::read(void* buffer, std::uint64_t size) {
    if (!zipped_) return read_data(buffer, size);
    if (!init_zip_stream(EFSMode::READ)) return 0;
    zip_->tell();
    auto* out = static_cast<Bytef*>(buffer);
    std::uint64_t done = 0;
    while (done < size && zip_->z_err == Z_OK)
        done += inflate_slice(out + done, static_cast<std::uint32_t>(std::min(size - done, slice_size)));
    return done;
}

/// Bytes produced; fewer than asked for at the end of the member and after a failure.
std::uint32_t izipped_buffer_file::inflate_slice(unsigned char* out, std::uint32_t size) {
    DecoderBuffers buffers{.in = zip_->next_in, .in_size = zip_->left_in, .out = out, .out_size = size};
    while (zip_->z_err == Z_OK && buffers.out_size != 0) {
        const Decoder::Result result = zip_->decoder->decode(buffers);  // also of no input: output may wait inside
        zip_->next_in = buffers.in;
        zip_->left_in = static_cast<std::uint32_t>(buffers.in_size);
        if (result == Decoder::Result::END) zip_->z_err = Z_STREAM_END;
        if (result == Decoder::Result::DAMAGED)
            zip_->fail(Z_DATA_ERROR, EFSError::BAD_FORMAT, "The gzip member is damaged.");
        if (result == Decoder::Result::NO_MEMORY)
            zip_->fail(Z_MEM_ERROR, EFSError::OUT_OF_MEMORY, "There is no memory for decoding the gzip member.");
        if (result != Decoder::Result::MORE || buffers.out_size == 0 || buffers.in_size != 0) continue;
        if (!refill()) break;
        buffers.in = zip_->next_in;
        buffers.in_size = zip_->left_in;
    }
    const auto produced = static_cast<std::uint32_t>(size - buffers.out_size);
    zip_->count(out, produced);
    if (zip_->z_err == Z_STREAM_END) check_trailer();
    return produced;
}

/// The length behind the checksum is read and not compared.
void izipped_buffer_file::check_trailer() {
    const bool same = get_long() == zip_->crc;
    get_long();
    if (!same && zip_->z_err != Z_ERRNO)  // refill said that it is cut off
        zip_->fail(Z_DATA_ERROR, EFSError::BAD_FORMAT, "The checksum of the gzip member is wrong.");
}

std::int64_t izipped_buffer_file::seek_zipped(std::int64_t offset, EFSSeek::TYPE origin) {
    if (zip_ == nullptr || zip_->is_broken()) return -1;
    if (origin != EFSSeek::BEGIN && origin != EFSSeek::CURRENT) return -1;
    return zip_->writing ? seek_writing(offset, origin) : seek_reading(offset, origin);
}

std::int64_t izipped_buffer_file::tell_zipped() { return seek_zipped(0, EFSSeek::CURRENT); }

std::int64_t izipped_buffer_file::seek_writing(std::int64_t offset, EFSSeek::TYPE origin) {
    if (offset < 0) return -1;
    auto gap = static_cast<std::uint64_t>(offset);
    if (origin == EFSSeek::BEGIN) {
        if (gap < zip_->total) return -1;
        gap -= zip_->total;
    }
    while (gap != 0) {
        const std::uint64_t written = write(zip_->scratch, std::min<std::uint64_t>(gap, State::buffer_size));
        if (written == 0) return -1;
        gap -= written;
    }
    return static_cast<std::int64_t>(zip_->total);
}

std::int64_t izipped_buffer_file::seek_reading(std::int64_t offset, EFSSeek::TYPE origin) {
    const auto distance = static_cast<std::uint64_t>(offset);
    const auto target = static_cast<std::int64_t>(origin == EFSSeek::CURRENT ? zip_->total + distance : distance);
    if (target < 0) return -1;
    const auto wanted = static_cast<std::uint64_t>(target);
    if (wanted < zip_->total && zip_rewind() < 0) return -1;
    while (zip_->total < wanted) {
        const std::uint64_t now = std::min<std::uint64_t>(wanted - zip_->total, State::buffer_size);
        if (read(zip_->scratch, now) == 0) return -1;
    }
    return static_cast<std::int64_t>(zip_->total);
}

std::int64_t izipped_buffer_file::zip_rewind() {
    if (!zipped_ || zip_ == nullptr || zip_->writing) return -1;
    zip_->z_err = Z_OK;
    zip_->reason = EFSError::NONE;
    zip_->left_in = 0;
    zip_->crc = 0;
    zip_->total = 0;
    zip_->decoder->start();
    return set_current_pos(static_cast<std::int64_t>(zip_->start)) ? 0 : -1;
}

bool izipped_buffer_file::check_zip_crc() {
    if (!zipped_ || zip_ == nullptr || zip_->writing) return false;
    const std::uint64_t here = tell();
    while (zip_->z_err == Z_OK) seek(crc_step, EFSSeek::CURRENT);
    const bool whole = zip_->z_err == Z_STREAM_END;
    seek(static_cast<std::int64_t>(here), EFSSeek::BEGIN);
    return whole;
}

}  // namespace fs
