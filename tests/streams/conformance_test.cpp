// What every stream promises, asked of every stream: a kind makes a writer over some storage, and then readers of it.
#include <gtest/gtest.h>

#include <memory>
#include <random>

#include <engine/filesystem/handles.h>
#include <engine/filesystem/streams.h>

#include "../support/temp_directory.h"
#include "recording_file.h"

namespace {

using Stream = std::unique_ptr<fs::ifile>;

struct Storage {
    TempDirectory directory;
    ztl::vector<unsigned char> bytes = ztl::vector<unsigned char>(1 << 20);

    SFsFile* open(EFSMode::TYPE mode) const {
        const FFSOpenFlags::FLAGS flags = mode == EFSMode::READ ? FFSOpenFlags::NONE : FFSOpenFlags::CREATE;
        return fs::open_native(nullptr, (directory / "file.bin").c_str(), mode, flags);
    }
};

template <class File>
Stream over_handle(std::unique_ptr<File> stream, const Storage& storage, EFSMode::TYPE mode) {
    EXPECT_TRUE(stream->open_from_handle(storage.open(mode)));
    return stream;
}

Stream over_vector(Storage& storage, EFSMode::TYPE mode, bool zip) {
    auto stream = std::make_unique<fs::vectorfile>();
    if (mode == EFSMode::WRITE) storage.bytes.clear();
    EXPECT_TRUE(stream->open_from_memory(mode, &storage.bytes, zip));
    return stream;
}

struct Kind {
    const char* name;
    bool zipped;
    bool seeks_back_when_writing;
    Stream (*writer)(Storage&);
    Stream (*reader)(Storage&);
};

const Kind kinds[] = {
    {"file", false, true, [](Storage& s) { return over_handle(std::make_unique<fs::file>(), s, EFSMode::WRITE); },
     [](Storage& s) { return over_handle(std::make_unique<fs::file>(), s, EFSMode::READ); }},
    {"file_native", false, true,
     [](Storage& s) -> Stream {
         auto stream = std::make_unique<fs::file_native>();
         EXPECT_TRUE(stream->open((s.directory / "file.bin").c_str(), EFSMode::WRITE, FFSOpenFlags::CREATE));
         return stream;
     },
     [](Storage& s) -> Stream {
         auto stream = std::make_unique<fs::file_native>();
         EXPECT_TRUE(stream->open((s.directory / "file.bin").c_str(), EFSMode::READ));
         return stream;
     }},
    {"cached_noseek", false, false,
     [](Storage& s) { return over_handle(std::make_unique<fs::cachedwrnoseekfile>(512), s, EFSMode::WRITE); },
     [](Storage& s) { return over_handle(std::make_unique<fs::cachedrdfile>(4096), s, EFSMode::READ); }},
    {"cached_image", false, true,
     [](Storage& s) { return over_handle(std::make_unique<fs::cachedwrfile>(100), s, EFSMode::WRITE); },
     [](Storage& s) { return over_handle(std::make_unique<fs::cachedrdfile>(7), s, EFSMode::READ); }},
    {"bfile", false, true,
     [](Storage& s) -> Stream {
         auto stream = std::make_unique<fs::bfile_win32>(1000);
         EXPECT_TRUE(stream->open((s.directory / "file.bin").c_str(), EFSMode::WRITE, FFSOpenFlags::CREATE));
         return stream;
     },
     [](Storage& s) -> Stream {
         auto stream = std::make_unique<fs::bfile_win32>(100);
         EXPECT_TRUE(stream->open((s.directory / "file.bin").c_str(), EFSMode::READ));
         return stream;
     }},
    {"memfile", false, true,
     [](Storage& s) -> Stream {
         auto stream = std::make_unique<fs::vectorfile>();
         s.bytes.clear();
         EXPECT_TRUE(stream->open_from_memory(EFSMode::WRITE, &s.bytes, false));
         return stream;
     },
     [](Storage& s) -> Stream {
         auto stream = std::make_unique<fs::memfile>();
         EXPECT_TRUE(stream->open_from_memory(EFSMode::READ, s.bytes.data(), s.bytes.size(), false));
         return stream;
     }},
    {"vectorfile", false, true, [](Storage& s) { return over_vector(s, EFSMode::WRITE, false); },
     [](Storage& s) { return over_vector(s, EFSMode::READ, false); }},
    {"zipped", true, false, [](Storage& s) { return over_vector(s, EFSMode::WRITE, true); },
     [](Storage& s) { return over_vector(s, EFSMode::READ, true); }},
};

struct EveryStream : testing::TestWithParam<Kind> {
    void write(const std::string& data) {
        const Stream stream = GetParam().writer(storage);
        ASSERT_EQ(stream->write(data.data(), data.size()), data.size());
        stream->close();
    }
    Stream reader() { return GetParam().reader(storage); }
    Storage storage;
};

INSTANTIATE_TEST_SUITE_P(Streams, EveryStream, testing::ValuesIn(kinds),
                         [](const auto& kind) { return std::string(kind.param.name); });

TEST_P(EveryStream, GivesBackWhatWasWrittenInAnyPieces) {
    const std::string data = sample_bytes(100000);
    std::mt19937 random(7);
    const auto next_piece = [&](std::size_t at) {
        return std::min<std::size_t>(random() % (random() % 4 == 0 ? 5000 : 20), data.size() - at);
    };
    const Stream out = GetParam().writer(storage);
    for (std::size_t at = 0; at < data.size();) {
        const std::size_t size = next_piece(at);
        ASSERT_EQ(out->write(data.data() + at, size), size);
        at += size;
        ASSERT_EQ(out->tell(), at);
    }
    out->close();

    const Stream in = reader();
    if (!GetParam().zipped) EXPECT_EQ(in->length(), data.size());
    std::string read(data.size(), '\0');
    for (std::size_t at = 0; at < data.size();) {
        const std::size_t size = next_piece(at);
        ASSERT_EQ(in->read(read.data() + at, size), size);
        at += size;
        ASSERT_EQ(in->tell(), at);
    }
    EXPECT_EQ(read, data);
    char byte = 0;
    EXPECT_EQ(in->read(&byte, 1), 0u);
    EXPECT_EQ(in->eof(), !GetParam().zipped) << "a zipped stream's length is the raw one";
}

TEST_P(EveryStream, CutsAReadAtTheEnd) {
    write("abcdefg");
    const Stream in = reader();
    char buffer[100] = {};
    EXPECT_EQ(in->read(buffer, 5), 5u);
    EXPECT_EQ(in->read(buffer + 5, 50), 2u);
    EXPECT_STREQ(buffer, "abcdefg");
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
    EXPECT_EQ(in->seek(-4, EFSSeek::END), !GetParam().zipped);
    if (!GetParam().zipped) {
        EXPECT_EQ(in->tell(), data.size() - 4);
    }
}

TEST_P(EveryStream, CarriesEveryTypedValue) {
    const std::vector<std::string> texts = {"one", "", std::string(5000, 't')};
    const Stream out = GetParam().writer(storage);
    *out << true << "narrow" << L"wide \x20AC" << texts;
    out->put_int(-5);
    out->put_float(0.25f);
    out->printf("%04d", 42);
    out->close();

    const Stream in = reader();
    bool truth = false;
    std::string narrow;
    std::wstring wide;
    std::vector<std::string> read;
    *in >> truth >> narrow >> wide >> read;
    EXPECT_TRUE(truth);
    EXPECT_EQ(narrow, "narrow");
    EXPECT_EQ(wide, L"wide \x20AC");
    EXPECT_EQ(read, texts);
    EXPECT_EQ(in->get_int(), -5);
    EXPECT_EQ(in->get_float(), 0.25f);
    char formatted[5] = {};
    EXPECT_EQ(in->read(formatted, 4), 4u);
    EXPECT_STREQ(formatted, "0042");
}

TEST_P(EveryStream, CarriesChunksWhereItCanSeekBack) {
    if (!GetParam().seeks_back_when_writing) return;
    const Stream out = GetParam().writer(storage);
    {
        fs::chunk_save outer(*out, 0x41424344, 1);
        for (int i = 0; i < 100; ++i) {
            fs::chunk_save inner(*out, 0x64617461, 2);
            out->printf("%*d", i, 0);
        }
    }
    out->close();
    const Stream in = reader();
    std::uint64_t end = 0;
    {
        const fs::chunk_load outer(*in);
        end = outer.end;
        EXPECT_EQ(outer.size, in->length() - 12);
        for (std::uint32_t i = 0; i < 100; ++i) {
            const fs::chunk_load inner(*in);
            EXPECT_TRUE(inner.match(0x64617461, 2, nullptr));
            EXPECT_EQ(inner.size, std::max(i, 1u));
        }
    }
    EXPECT_EQ(in->tell(), end);
}

}  // namespace
