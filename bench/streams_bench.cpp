// Streams against the C library, the C++ library, bare zlib and, where it is installed, PhysFS. Each pair of rows does
// the same work on the same bytes; run with --benchmark_repetitions and compare medians.
#include <benchmark/benchmark.h>

#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <engine/filesystem/handles.h>
#include <engine/filesystem/streams.h>

#include "engine/filesystem/formats/deflate.h"
#include "engine/kernel/bytes.h"

#if defined(HAVE_PHYSFS)
#include <physfs.h>
#endif

namespace {

constexpr int values = 10'000'000;
constexpr unsigned block_size = 16 * 1024;

std::string work_path(const char* name) { return (std::filesystem::temp_directory_path() / name).string(); }

const std::string& numbers_path() {
    static const std::string path = [] {
        const std::string made = work_path("streams_bench_numbers.bin");
        std::FILE* file = std::fopen(made.c_str(), "wb");
        for (std::uint32_t i = 0; i < values; ++i) {
            const std::uint32_t value = i * 2654435761u;
            std::fwrite(&value, 4, 1, file);
        }
        std::fclose(file);
        return made;
    }();
    return path;
}

SFsFile* open_native(const std::string& path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE) {
    return fs::open_native(nullptr, path.c_str(), mode, flags);
}

void count_values(benchmark::State& state) {
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * values);
}

void ReadInts_fread(benchmark::State& state) {
    for (auto _ : state) {
        std::FILE* file = std::fopen(numbers_path().c_str(), "rb");
        std::uint32_t sum = 0;
        for (int i = 0; i < values; ++i) {
            std::uint32_t value = 0;
            if (std::fread(&value, 4, 1, file) != 1) state.SkipWithError("short read");
            sum += value;
        }
        benchmark::DoNotOptimize(sum);
        std::fclose(file);
    }
    count_values(state);
}

void sum_ints(fs::ifile& stream, benchmark::State& state) {
    std::uint32_t sum = 0;
    for (int i = 0; i < values; ++i) sum += static_cast<std::uint32_t>(stream.get_int());
    benchmark::DoNotOptimize(sum);
    if (stream.tell() != std::uint64_t{4} * values) state.SkipWithError("short read");
}

void ReadInts_cachedrdfile(benchmark::State& state) {
    for (auto _ : state) {
        fs::cachedrdfile stream(block_size);
        stream.open_from_handle(open_native(numbers_path(), EFSMode::READ));
        sum_ints(stream, state);
    }
    count_values(state);
}

void ReadInts_bfile(benchmark::State& state) {
    for (auto _ : state) {
        fs::bfile_win32 stream;
        stream.open(numbers_path().c_str(), EFSMode::READ);
        sum_ints(stream, state);
    }
    count_values(state);
}

#if defined(HAVE_PHYSFS)
void ReadInts_physfs(benchmark::State& state) {
    PHYSFS_init(nullptr);
    PHYSFS_mount(std::filesystem::temp_directory_path().string().c_str(), nullptr, 1);
    numbers_path();
    for (auto _ : state) {
        PHYSFS_File* file = PHYSFS_openRead("streams_bench_numbers.bin");
        PHYSFS_setBuffer(file, block_size);
        std::uint32_t sum = 0;
        for (int i = 0; i < values; ++i) {
            PHYSFS_sint32 value = 0;
            if (PHYSFS_readSLE32(file, &value) == 0) state.SkipWithError("short read");
            sum += static_cast<std::uint32_t>(value);
        }
        benchmark::DoNotOptimize(sum);
        PHYSFS_close(file);
    }
    PHYSFS_deinit();
    count_values(state);
}
BENCHMARK(ReadInts_physfs)->Unit(benchmark::kMillisecond);
#endif

void WriteInts_fwrite(benchmark::State& state) {
    for (auto _ : state) {
        std::FILE* file = std::fopen(work_path("streams_bench_out").c_str(), "wb");
        for (std::uint32_t i = 0; i < values; ++i) std::fwrite(&i, 4, 1, file);
        std::fclose(file);
    }
    count_values(state);
}

void put_ints(fs::ifile& stream) {
    for (int i = 0; i < values; ++i) stream.put_int(i);
    stream.close();
}

void WriteInts_cachedwrnoseekfile(benchmark::State& state) {
    for (auto _ : state) {
        fs::cachedwrnoseekfile stream(block_size);
        stream.open_from_handle(open_native(work_path("streams_bench_out"), EFSMode::WRITE, FFSOpenFlags::CREATE));
        put_ints(stream);
    }
    count_values(state);
}

void WriteInts_cachedwrfile(benchmark::State& state) {
    for (auto _ : state) {
        fs::cachedwrfile stream(1024 * 1024);
        stream.open_from_handle(open_native(work_path("streams_bench_out"), EFSMode::WRITE, FFSOpenFlags::CREATE));
        put_ints(stream);
    }
    count_values(state);
}

void WriteInts_bfile(benchmark::State& state) {
    for (auto _ : state) {
        fs::bfile_win32 stream;
        stream.open(work_path("streams_bench_out").c_str(), EFSMode::WRITE, FFSOpenFlags::CREATE);
        put_ints(stream);
    }
    count_values(state);
}

BENCHMARK(ReadInts_fread)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadInts_cachedrdfile)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadInts_bfile)->Unit(benchmark::kMillisecond);
BENCHMARK(WriteInts_fwrite)->Unit(benchmark::kMillisecond);
BENCHMARK(WriteInts_cachedwrnoseekfile)->Unit(benchmark::kMillisecond);
BENCHMARK(WriteInts_cachedwrfile)->Unit(benchmark::kMillisecond);
BENCHMARK(WriteInts_bfile)->Unit(benchmark::kMillisecond);

// Vectors of short strings: a count, then each string with a 16-bit length.

const std::vector<std::string>& short_strings() {
    static const std::vector<std::string> strings = [] {
        std::vector<std::string> made;
        for (int i = 0; i < 1'000'000; ++i) made.push_back("name" + std::to_string(std::int64_t{i} * 7919 % 100003));
        return made;
    }();
    return strings;
}

void WriteStrings_ofstream(benchmark::State& state) {
    const auto& strings = short_strings();
    for (auto _ : state) {
        std::ofstream out(work_path("streams_bench_strings"), std::ios::binary);
        const auto count = static_cast<std::uint32_t>(strings.size());
        out.write(reinterpret_cast<const char*>(&count), 4);
        for (const std::string& text : strings) {
            const auto length = static_cast<std::uint16_t>(text.size());
            out.write(reinterpret_cast<const char*>(&length), 2);
            out.write(text.data(), length);
        }
    }
}

template <class Stream>
void write_strings(Stream& stream) {
    stream.open_from_handle(open_native(work_path("streams_bench_strings"), EFSMode::WRITE, FFSOpenFlags::CREATE));
    stream << short_strings();
    stream.close();
}

void WriteStrings_cachedwrnoseekfile(benchmark::State& state) {
    for (auto _ : state) {
        fs::cachedwrnoseekfile stream(block_size);
        write_strings(stream);
    }
}

void WriteStrings_file(benchmark::State& state) {
    for (auto _ : state) {
        fs::file stream;
        write_strings(stream);
    }
}

void ReadStrings_ifstream(benchmark::State& state) {
    std::vector<std::string> strings;
    for (auto _ : state) {
        strings = {};
        std::ifstream in(work_path("streams_bench_strings"), std::ios::binary);
        std::uint32_t count = 0;
        in.read(reinterpret_cast<char*>(&count), 4);
        for (std::uint32_t i = 0; i < count; ++i) {
            std::uint16_t length = 0;
            in.read(reinterpret_cast<char*>(&length), 2);
            std::string text(length, '\0');
            in.read(text.data(), length);
            strings.push_back(std::move(text));
        }
    }
    if (strings != short_strings()) state.SkipWithError("wrong strings");
}

void ReadStrings_cachedrdfile(benchmark::State& state) {
    std::vector<std::string> strings;
    for (auto _ : state) {
        strings = {};
        fs::cachedrdfile stream(block_size);
        stream.open_from_handle(open_native(work_path("streams_bench_strings"), EFSMode::READ));
        stream >> strings;
    }
    if (strings != short_strings()) state.SkipWithError("wrong strings");
}

BENCHMARK(WriteStrings_ofstream)->Unit(benchmark::kMillisecond);
BENCHMARK(WriteStrings_file)->Unit(benchmark::kMillisecond);
BENCHMARK(WriteStrings_cachedwrnoseekfile)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadStrings_ifstream)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadStrings_cachedrdfile)->Unit(benchmark::kMillisecond);

// Gzip: text made from a small vocabulary, then bytes that resemble a program, in turns of 64 KiB.

constexpr std::size_t plain_size = std::size_t{256} << 20;

const std::string& plain_bytes() {
    static const std::string bytes = [] {
        std::string made;
        made.reserve(plain_size + 64);
        std::uint32_t seed = 1;
        const auto next = [&seed] { return (seed = seed * 1664525u + 1013904223u) >> 8; };
        while (made.size() < plain_size) {
            if ((made.size() >> 16) % 2 == 0) {
                made += "word" + std::to_string(next() % 3000);
                made += next() % 9 == 0 ? '\n' : ' ';
            } else {
                for (int i = 0; i < 8; ++i) made += static_cast<char>(next() % (i % 4 == 0 ? 256 : 12));
            }
        }
        made.resize(plain_size);
        return made;
    }();
    return bytes;
}

std::vector<unsigned char> member;  // as the stream wrote it

void count_plain_bytes(benchmark::State& state) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * plain_size));
}

void GzipWrite_zlib(benchmark::State& state) {
    const std::string& plain = plain_bytes();
    std::vector<unsigned char> packed(plain_size);
    for (auto _ : state) {
        z_stream stream = {};
        deflateInit2(&stream, 9, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY);
        stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(plain.data()));
        stream.avail_in = plain_size;
        stream.next_out = packed.data();
        stream.avail_out = static_cast<uInt>(packed.size());
        if (deflate(&stream, Z_FINISH) != Z_STREAM_END) state.SkipWithError("does not fit");
        deflateEnd(&stream);
        benchmark::DoNotOptimize(crc32_z(0, reinterpret_cast<const Bytef*>(plain.data()), plain_size));
    }
    count_plain_bytes(state);
}

void GzipWrite_vectorfile(benchmark::State& state) {
    const std::string& plain = plain_bytes();
    for (auto _ : state) {
        member.clear();
        fs::vectorfile stream;
        stream.open_from_memory(EFSMode::WRITE, &member, true);
        if (stream.write(plain.data(), plain_size) != plain_size) state.SkipWithError("short write");
        stream.close();
    }
    count_plain_bytes(state);
}

void need_member() {
    if (!member.empty()) return;
    fs::vectorfile stream;
    stream.open_from_memory(EFSMode::WRITE, &member, true);
    stream.write(plain_bytes().data(), plain_size);
    stream.close();
}

void GzipRead_zlib(benchmark::State& state) {
    need_member();
    std::string plain(plain_size, '\0');
    for (auto _ : state) {
        z_stream stream = {};
        inflateInit2(&stream, -15);
        stream.next_in = member.data() + 10;
        stream.avail_in = static_cast<uInt>(member.size() - 18);
        stream.next_out = reinterpret_cast<Bytef*>(plain.data());
        stream.avail_out = plain_size;
        if (inflate(&stream, Z_FINISH) != Z_STREAM_END) state.SkipWithError("damaged");
        inflateEnd(&stream);
        benchmark::DoNotOptimize(crc32_z(0, reinterpret_cast<const Bytef*>(plain.data()), plain_size));
    }
    count_plain_bytes(state);
}

/// What the decoder itself can do, on the member as one piece: the limit for the stream over it.
void GzipRead_decoder(benchmark::State& state) {
    need_member();
    std::string plain(plain_size, '\0');
    const auto decoder = fs::make_inflater();
    for (auto _ : state) {
        fs::DecoderBuffers buffers{.in = member.data() + 10,
                                   .in_size = member.size() - 18,
                                   .out = reinterpret_cast<std::uint8_t*>(plain.data()),
                                   .out_size = plain_size};
        decoder->start();
        decoder->decode(buffers);
        benchmark::DoNotOptimize(kernel::crc32(0, plain.data(), plain_size));
    }
    if (plain != plain_bytes()) state.SkipWithError("wrong bytes");
    count_plain_bytes(state);
}

void GzipRead_vectorfile(benchmark::State& state) {
    need_member();
    std::string plain(plain_size, '\0');
    for (auto _ : state) {
        fs::vectorfile stream;
        stream.open_from_memory(EFSMode::READ, &member, true);
        if (stream.read(plain.data(), plain_size) != plain_size) state.SkipWithError("short read");
        stream.close();
    }
    if (plain != plain_bytes()) state.SkipWithError("wrong bytes");
    count_plain_bytes(state);
}

void GzipRead_vectorfile_by_4K(benchmark::State& state) {
    need_member();
    char piece[4096];
    for (auto _ : state) {
        fs::vectorfile stream;
        stream.open_from_memory(EFSMode::READ, &member, true);
        while (stream.read(piece, sizeof(piece)) == sizeof(piece)) benchmark::ClobberMemory();
        stream.close();
    }
    count_plain_bytes(state);
}

/// The member as a file of the disk.
const std::string& member_path() {
    static const std::string path = [] {
        need_member();
        const std::string made = work_path("streams_bench_member.gz");
        std::ofstream(made, std::ios::binary)
            .write(reinterpret_cast<const char*>(member.data()), static_cast<std::streamsize>(member.size()));
        return made;
    }();
    return path;
}

/// A gzip stream over a file of ours, as a host that has members in files writes it.
class GzipOverFile : public fs::izipped_buffer_file {
public:
    explicit GzipOverFile(const std::string& path)
        : file_(fs::open_native(nullptr, path.c_str(), EFSMode::READ, FFSOpenFlags::NONE)) {
        init(EFSMode::READ, true);
    }
    ~GzipOverFile() override {
        close();
        fs::close(file_);
    }
    std::uint64_t write_data(const void*, std::uint64_t) override { return 0; }
    std::uint64_t read_data(void* buffer, std::uint64_t size) override { return fs::read(file_, buffer, size); }
    std::uint64_t get_size() override { return fs::length(file_); }
    bool set_size(std::uint64_t) override { return false; }
    std::uint64_t get_current_pos() override { return fs::tell(file_); }
    bool set_current_pos(std::int64_t position) override { return fs::seek(file_, position, EFSSeek::BEGIN); }

private:
    SFsFile* file_;
};

void GzipRead_file(benchmark::State& state) {
    const std::string& path = member_path();
    std::string piece(1 << 16, '\0');
    for (auto _ : state) {
        GzipOverFile stream(path);
        std::uint64_t bytes = 0;
        while (const std::uint64_t got = stream.read(piece.data(), piece.size())) bytes += got;
        if (bytes != plain_size || fs::last_error().code != EFSError::NONE) state.SkipWithError("short read");
    }
    count_plain_bytes(state);
}

void GzipRead_gzread(benchmark::State& state) {
    const std::string& path = member_path();
    std::string piece(1 << 16, '\0');
    for (auto _ : state) {
        const gzFile file = gzopen(path.c_str(), "rb");
        std::uint64_t bytes = 0;
        for (int got = 1; got > 0; bytes += static_cast<std::uint64_t>(std::max(got, 0)))
            got = gzread(file, piece.data(), static_cast<unsigned>(piece.size()));
        if (gzclose(file) != Z_OK || bytes != plain_size) state.SkipWithError("short read");
    }
    count_plain_bytes(state);
}

BENCHMARK(GzipWrite_zlib)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(GzipWrite_vectorfile)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(GzipRead_zlib)->Unit(benchmark::kMillisecond);
BENCHMARK(GzipRead_decoder)->Unit(benchmark::kMillisecond);
BENCHMARK(GzipRead_vectorfile)->Unit(benchmark::kMillisecond);
BENCHMARK(GzipRead_vectorfile_by_4K)->Unit(benchmark::kMillisecond);
BENCHMARK(GzipRead_file)->Unit(benchmark::kMillisecond);
BENCHMARK(GzipRead_gzread)->Unit(benchmark::kMillisecond);

// Growing by small pieces of 4 to 16 bytes, to the size given in MiB.

constexpr unsigned char piece[16] = {};

void Grow_vector(benchmark::State& state) {
    const std::size_t size = static_cast<std::size_t>(state.range(0)) << 20;
    for (auto _ : state) {
        std::vector<unsigned char> bytes;
        for (std::size_t i = 0; bytes.size() < size; ++i) {
            bytes.insert(bytes.end(), piece, piece + 4 + i % 13);
            benchmark::ClobberMemory();
        }
    }
}

void Grow_vectorfile(benchmark::State& state) {
    const std::size_t size = static_cast<std::size_t>(state.range(0)) << 20;
    for (auto _ : state) {
        std::vector<unsigned char> bytes;
        fs::vectorfile stream;
        stream.open_from_memory(EFSMode::WRITE, &bytes, false);
        for (std::size_t i = 0; bytes.size() < size; ++i) stream.write(piece, 4 + i % 13);
    }
}

BENCHMARK(Grow_vector)->Arg(16)->Arg(256)->Unit(benchmark::kMillisecond);
BENCHMARK(Grow_vectorfile)->Arg(16)->Arg(256)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
