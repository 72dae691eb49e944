// What every stream answers, asked of every stream: a kind makes a writer over some storage, and then readers of it.
#include <gtest/gtest.h>

#include <memory>
#include <random>

#include <engine/filesystem/contract/error.h>
#include <engine/filesystem/handles.h>
#include <engine/filesystem/streams.h>

#include "../support/temp_directory.h"
#include "engine/platform/faults.h"
#include "recording_file.h"

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
    const FFSOpenFlags::FLAGS flags = mode == EFSMode::READ ? FFSOpenFlags::NONE : FFSOpenFlags::CREATE;
    auto stream = std::make_unique<File>(arguments...);
    if constexpr (std::is_same_v<File, fs::file_native> || !std::is_base_of_v<fs::file, File>)
        EXPECT_TRUE(stream->open(storage.path.c_str(), mode, flags));
    else
        EXPECT_TRUE(stream->open_from_handle(fs::open_native(nullptr, storage.path.c_str(), mode, flags)));
    return stream;
}

template <bool zip>
Stream over_vector(Storage& storage, EFSMode::TYPE mode) {
    auto stream = std::make_unique<fs::vectorfile>();
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
    bool goes_back;  // for writing
    enum Medium { DISK, MEMORY, MEMBER } medium;
};

const Kind kinds[] = {
    {"file", over_file<fs::file>, over_file<fs::file>, true, Kind::DISK},
    {"file_native", over_file<fs::file_native>, over_file<fs::file_native>, true, Kind::DISK},
    {"cached_noseek", over_file<fs::cachedwrnoseekfile, 512>, over_file<fs::cachedrdfile, 4096>, false, Kind::DISK},
    {"cached_image", over_file<fs::cachedwrfile, 100>, over_file<fs::cachedrdfile, 7>, true, Kind::DISK},
    {"bfile", over_file<fs::bfile_win32, 1000>, over_file<fs::bfile_win32, 100>, true, Kind::DISK},
    {"memfile", over_vector<false>, over_block, true, Kind::MEMORY},
    {"vectorfile", over_vector<false>, over_vector<false>, true, Kind::MEMORY},
    {"zipped", over_vector<true>, over_vector<true>, false, Kind::MEMBER},
};

struct EveryStream : testing::TestWithParam<Kind> {
    ~EveryStream() override { platform::clear_faults(); }
    Stream writer() { return GetParam().make_writer(storage, EFSMode::WRITE); }
    Stream reader() { return GetParam().make_reader(storage, EFSMode::READ); }
    void write(const std::string& data) {
        const Stream stream = writer();
        ASSERT_EQ(stream->write(data.data(), data.size()), data.size());
        stream->close();
    }
    bool is(Kind::Medium medium) const { return GetParam().medium == medium; }
    Storage storage;
};

INSTANTIATE_TEST_SUITE_P(Streams, EveryStream, testing::ValuesIn(kinds),
                         [](const auto& kind) { return std::string(kind.param.name); });

TEST_P(EveryStream, GivesBackWhatWasWrittenInAnyPieces) {
    std::string data = sample_bytes(100000);
    std::mt19937 random(7);
    const auto next_piece = [&](std::size_t at) {
        return std::min<std::size_t>(random() % (random() % 4 == 0 ? 5000 : 20), data.size() - at);
    };
    const Stream out = writer();
    for (std::size_t at = 0; at < data.size();) {
        const std::size_t size = next_piece(at);
        ASSERT_EQ(out->write(data.data() + at, size), size);
        at += size;
        ASSERT_EQ(out->tell(), at);
        if (!GetParam().goes_back || at < 20) continue;
        const std::size_t target = random() % (at - 4);
        ASSERT_TRUE(out->seek(static_cast<std::int64_t>(target), EFSSeek::BEGIN));
        out->put_int(0x61626364);
        data.replace(target, 4, "dcba");
        ASSERT_TRUE(out->seek(static_cast<std::int64_t>(at - target - 4), EFSSeek::CURRENT));
    }
    out->close();

    const Stream in = reader();
    if (!is(Kind::MEMBER)) EXPECT_EQ(in->length(), data.size());
    std::string read(data.size(), '\0');
    for (std::size_t at = 0; at < data.size();) {
        const std::size_t size = next_piece(at);
        ASSERT_EQ(in->read(read.data() + at, size), size);
        at += size;
        ASSERT_EQ(in->tell(), at);
    }
    EXPECT_TRUE(read == data);
    ASSERT_TRUE(in->seek(99995, EFSSeek::BEGIN));
    fs::clear_error();
    EXPECT_EQ(in->read(read.data(), 100), 5u) << "cut at the end";
    EXPECT_EQ(in->read(read.data(), 1), 0u);
    EXPECT_EQ(fs::last_error().code, EFSError::NONE);
    EXPECT_EQ(in->eof(), !is(Kind::MEMBER)) << "a member's length is the raw one";
}

TEST_P(EveryStream, SeeksForReading) {
    const std::string data = sample_bytes(20000);
    write(data);
    const Stream in = reader();
    std::mt19937 random(3);
    for (int i = 0; i < 100; ++i) {
        const std::size_t target = random() % (data.size() - 5);
        const auto from = static_cast<std::int64_t>(in->tell());
        const bool relative = i % 2 == 0;
        ASSERT_TRUE(in->seek(static_cast<std::int64_t>(target) - (relative ? from : 0),
                             relative ? EFSSeek::CURRENT : EFSSeek::BEGIN));
        ASSERT_EQ(in->tell(), target);
        char bytes[5];
        ASSERT_EQ(in->read(bytes, 5), 5u);
        ASSERT_EQ(std::string(bytes, 5), data.substr(target, 5)) << target;
    }
    EXPECT_EQ(in->seek(-4, EFSSeek::END), !is(Kind::MEMBER));
    if (!is(Kind::MEMBER)) EXPECT_EQ(in->tell(), data.size() - 4);
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
    const std::string data = sample_bytes(20000);
    write(data);
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

TEST_P(EveryStream, TellsOfAFullDiskAtCloseAtTheLatest) {
    if (!is(Kind::DISK)) return;
    const std::string data = sample_bytes(20000);
    for (const bool is_full : {true, false}) {
        const Stream out = writer();
        if (is_full) platform::inject_fault(FaultPoint::WRITE, 1, Failure::DISK_FULL, true);
        bool told = false;
        for (std::size_t at = 0; at < data.size(); at += 1000) {
            fs::clear_error();
            if (out->write(data.data() + at, 1000) != 1000) told = fs::last_error().code == EFSError::DISK_FULL;
        }
        fs::clear_error();
        out->close();
        EXPECT_EQ(told || fs::last_error().code == EFSError::DISK_FULL, is_full);
        platform::clear_faults();
    }
    EXPECT_TRUE(storage.directory.read("file.bin") == data) << "also after the failure of another";
}

}  // namespace
