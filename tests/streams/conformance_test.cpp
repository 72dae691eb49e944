// What every stream answers, asked of every stream: a kind makes a writer over some storage, and then readers of it.

#include <random>

#include <engine/filesystem/handles.h>

#include "kit.h"

namespace {

using platform::Failure;
using platform::FaultPoint;

constexpr std::uint64_t failed = UINT64_MAX;

using Stream = std::unique_ptr<fs::ifile>;

struct Storage {
    TempDirectory directory;
    const std::string path = directory / "file.bin";
    ztl::vector<unsigned char> bytes;
};

template <class File, auto... arguments>
Stream over_file(Storage& storage, EFSMode::TYPE mode) {
    const FFSOpenFlags::FLAGS flags = mode == EFSMode::WRITE ? FFSOpenFlags::CREATE : FFSOpenFlags::NONE;
    auto stream = std::make_unique<File>(arguments...);
    if constexpr (std::is_same_v<File, fs::file_native> || std::is_same_v<File, fs::bfile_win32>)
        EXPECT_TRUE(stream->open(storage.path.c_str(), mode, flags));
    else
        EXPECT_TRUE(stream->open_from_handle(fs::open_native(nullptr, storage.path.c_str(), mode, flags)));
    return stream;
}

Stream over_gzip(Storage& storage, EFSMode::TYPE mode) {
    auto stream = std::make_unique<fs::file_native>();
    const auto flags = mode == EFSMode::WRITE ? FFSOpenFlags::GZIP_LEVEL1 : FFSOpenFlags::GZIP;
    EXPECT_TRUE(stream->open(storage.path.c_str(), mode, flags));
    return stream;
}

template <bool zip>
Stream over_vector(Storage& storage, EFSMode::TYPE mode) {
    auto stream = std::make_unique<fs::vectorfile>();
    if (mode == EFSMode::READ_WRITE) mode = EFSMode::WRITE;  // it goes both ways in any mode
    EXPECT_TRUE(stream->open_from_memory(mode, &storage.bytes, zip));
    return stream;
}

Stream over_block(Storage& storage, EFSMode::TYPE mode) {
    auto stream = std::make_unique<fs::memfile>();
    EXPECT_TRUE(stream->open_from_memory(mode, storage.bytes.data(), storage.bytes.size(), false));
    return stream;
}

using Maker = Stream (*)(Storage&, EFSMode::TYPE);

struct Kind {
    const char* name;
    Maker make_writer;
    Maker make_reader;
    enum Ways { FORWARD, BACK, BOTH } ways;  // a writer only goes on, goes back, or also reads
    enum Medium { DISK, MEMORY, MEMBER, GZIP_FILE } medium;
};

const Kind kinds[] = {
    {"file", over_file<fs::file>, over_file<fs::file>, Kind::BOTH, Kind::DISK},
    {"file_native", over_file<fs::file_native>, over_file<fs::file_native>, Kind::BOTH, Kind::DISK},
    {"cached_noseek", over_file<fs::cachedwrnoseekfile, 512>, over_file<fs::cachedrdfile, 4096>, Kind::FORWARD,
     Kind::DISK},
    {"cached_image", over_file<fs::cachedwrfile, 100>, over_file<fs::cachedrdfile, 7>, Kind::BACK, Kind::DISK},
    {"bfile_1", over_file<fs::bfile_win32, 1>, over_file<fs::bfile_win32, 1>, Kind::BOTH, Kind::DISK},
    {"bfile_1000", over_file<fs::bfile_win32, 1000>, over_file<fs::bfile_win32, 1000>, Kind::BOTH, Kind::DISK},
    {"memfile", over_vector<false>, over_block, Kind::BACK, Kind::MEMORY},
    {"vectorfile", over_vector<false>, over_vector<false>, Kind::BOTH, Kind::MEMORY},
    {"zipped", over_vector<true>, over_vector<true>, Kind::FORWARD, Kind::MEMBER},
    {"gzip_handle", over_gzip, over_gzip, Kind::FORWARD, Kind::GZIP_FILE},
};

struct EveryStream : testing::TestWithParam<Kind> {
    ~EveryStream() override { platform::clear_faults(); }
    Stream writer() { return GetParam().make_writer(storage, EFSMode::WRITE); }
    Stream reader() { return GetParam().make_reader(storage, EFSMode::READ); }
    bool is(Kind::Medium medium) const { return GetParam().medium == medium; }
    bool is_packed() const { return is(Kind::MEMBER) || is(Kind::GZIP_FILE); }
    Storage storage;
};

INSTANTIATE_TEST_SUITE_P(Streams, EveryStream, testing::ValuesIn(kinds),
                         [](const auto& kind) { return std::string(kind.param.name); });

/// The same operations on a stream and on a string, which must agree.
struct Twins {
    std::size_t any_size() { return random() % (random() % 16 == 0 ? 5000 : 20); }
    void write(std::size_t size) {
        const std::string data = noise(size, static_cast<std::uint32_t>(random()));
        ASSERT_EQ(stream->write(data.data(), size), size);
        if (size == 0) return;
        if (bytes.size() < at + size) bytes.resize(at + size);
        bytes.replace(at, size, data);
        at += size;
    }
    void read(std::size_t size) {
        std::string got(size, '\0');
        got.resize(stream->read(got.data(), size));
        ASSERT_EQ(got, at < bytes.size() ? bytes.substr(at, size) : "");
        at += got.size();
    }
    void seek(std::size_t target) {
        const bool relative = random() % 2 == 0;
        ASSERT_TRUE(stream->seek(static_cast<std::int64_t>(target) - static_cast<std::int64_t>(relative ? at : 0),
                                 relative ? EFSSeek::CURRENT : EFSSeek::BEGIN));
        at = target;
    }
    void cut() {
        stream->set_eof();
        bytes.resize(at);
    }
    void start(Stream on) {
        stream = std::move(on);
        at = 0;
    }

    Stream stream;
    std::string bytes;
    std::size_t at = 0;
    std::mt19937 random{7};
};

TEST_P(EveryStream, BehavesAsAStringOfBytesUnderRandomUse) {
    Twins both;
    both.start(writer());
    for (int step = 0; step < 2000; ++step) {
        both.write(both.any_size());
        ASSERT_EQ(both.stream->tell(), both.at);
        if (GetParam().ways != Kind::FORWARD && both.random() % 8 == 0)
            both.seek(both.random() % (both.bytes.size() + 1));
    }
    if (GetParam().ways != Kind::FORWARD) both.seek(both.bytes.size());
    both.write(20000);
    both.stream->close();

    if (GetParam().ways == Kind::BOTH) {
        both.start(GetParam().make_reader(storage, EFSMode::READ_WRITE));
        const std::size_t gap = is(Kind::DISK) ? 20 : 1;  // a vector grows when it is gone past
        for (int step = 0; step < 5000; ++step) {
            const auto action = both.random() % 12;
            if (action < 4) both.read(both.any_size());
            if (action >= 4 && action < 8) both.write(both.any_size());
            if (action >= 8) both.seek(both.random() % (both.bytes.size() + gap));
            if (action == 11 && both.random() % 20 == 0) both.cut();
            if (auto* const buffered = dynamic_cast<fs::bfile_win32*>(both.stream.get()); buffered && action == 10)
                EXPECT_TRUE(buffered->flush());
            ASSERT_EQ(both.stream->tell(), both.at);
            ASSERT_EQ(both.stream->length(), both.bytes.size());
        }
        both.seek(0);
        both.write(20000);
        both.stream->close();
    }

    both.start(reader());
    if (!is_packed()) EXPECT_EQ(both.stream->length(), both.bytes.size());
    for (int step = 0; step < 1000; ++step) {
        both.read(both.any_size());
        ASSERT_EQ(both.stream->tell(), both.at);
        if (both.random() % 4 == 0) both.seek(both.random() % both.bytes.size());
    }
    both.seek(both.bytes.size() - 5);
    fs::clear_error();
    both.read(100);
    both.read(1);
    EXPECT_EQ(fs::last_error().code, EFSError::NONE) << "the end is no failure";
    EXPECT_EQ(both.stream->eof(), !is_packed()) << "a packed stream does not know its length";
    EXPECT_EQ(both.stream->seek(-4, EFSSeek::END), !is_packed());
    if (!is_packed()) EXPECT_EQ(both.stream->tell(), both.bytes.size() - 4);
    EXPECT_FALSE(both.stream->seek(1, static_cast<EFSSeek::TYPE>(3)));
    EXPECT_FALSE(both.stream->seek(-1, EFSSeek::BEGIN));
}

TEST_P(EveryStream, SaysWhyItNeitherReadsNorWrites) {
    if (is(Kind::MEMORY)) return;  // it goes both ways, and closing takes nothing away
    char byte = 0;
    const auto fails = [&](std::uint64_t answer, const Stream& stream, bool reads) {
        fs::clear_error();
        EXPECT_EQ(reads ? stream->read(&byte, 1) : stream->write(&byte, 1), answer);
        EXPECT_NE(fs::last_error().code, EFSError::NONE);
    };
    const std::uint64_t answer = is(Kind::MEMBER) ? 0 : failed;
    const Stream out = writer();
    fails(answer, out, true);
    out->close();
    const Stream in = reader();
    fails(answer, in, false);
    in->close();
    if (is(Kind::MEMBER)) return;  // it now gives the raw bytes
    fails(failed, in, true);
    fails(failed, in, false);
    EXPECT_EQ(in->length(), failed);
    EXPECT_FALSE(in->seek(1, EFSSeek::BEGIN));
    EXPECT_EQ(in->name(), nullptr);
    in->close();
}

TEST_P(EveryStream, TellsAFailedReadFromTheEndAndGoesOnBehindIt) {
    if (!is(Kind::DISK)) return;
    const std::string data = noise(20000, 1);
    const Stream out = writer();
    ASSERT_EQ(out->write(data.data(), data.size()), data.size());
    out->close();
    const Stream in = reader();
    platform::inject_fault(FaultPoint::READ, 2, Failure::OTHER, false);
    std::string read;
    int failures = 0;
    while (read.size() < data.size() && failures < 2) {
        char bytes[300];
        fs::clear_error();
        const std::uint64_t got = in->read(bytes, sizeof(bytes));
        if (got != failed) read.append(bytes, got);
        if (got == sizeof(bytes) || read.size() == data.size()) continue;
        ++failures;
        EXPECT_EQ(fs::last_error().code, EFSError::IO);
        ASSERT_EQ(in->tell(), read.size());
    }
    EXPECT_EQ(failures, 1);
    EXPECT_TRUE(read == data);
}

}  // namespace
