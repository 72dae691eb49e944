// Members go both ways between us and the tools that people have.
#include <gtest/gtest.h>

#include <cstdlib>

#include <engine/filesystem/streams/memory.h>

#include "../../support/temp_directory.h"
#include "../recording_file.h"

namespace {

bool runs(const std::string& command) { return std::system(("{ " + command + "\n} >/dev/null 2>&1").c_str()) == 0; }

std::string text_and_noise() {
    std::string text;
    for (int i = 0; i < 20000; ++i) text += "line " + std::to_string(i * 31 % 1009) + "\n";
    return text + sample_bytes(50000);
}

struct Tool {
    const char* name;
    const char* present;  // a command that succeeds where the tool is installed
    const char* command;  // from "in" to "out"
};

void PrintTo(const Tool& tool, std::ostream* out) { *out << tool.name; }

struct GzipTools : testing::TestWithParam<Tool> {
    bool run() const { return runs("cd '" + directory.path() + "' && " + GetParam().command); }
    TempDirectory directory;
};

struct ReadOurs : GzipTools {};
struct WriteForUs : GzipTools {};

TEST_P(ReadOurs, Member) {
    if (!runs(GetParam().present)) GTEST_SKIP() << GetParam().name << " is not installed";
    for (const std::string& plain : {std::string(), std::string("abc"), text_and_noise()}) {
        ztl::vector<unsigned char> member;
        fs::vectorfile stream;
        stream.open_from_memory(EFSMode::WRITE, &member, true);
        stream.write(plain.data(), plain.size());
        stream.close();
        directory.write("in", std::string(member.begin(), member.end()));
        ASSERT_TRUE(run());
        EXPECT_TRUE(directory.read("out") == plain) << plain.size();
    }
}

TEST_P(WriteForUs, Member) {
    if (!runs(GetParam().present)) GTEST_SKIP() << GetParam().name << " is not installed";
    for (const std::string& plain : {std::string(), std::string("abc"), text_and_noise()}) {
        directory.write("in", plain);
        ASSERT_TRUE(run());
        const std::string packed = directory.read("out");
        ztl::vector<unsigned char> member(packed.begin(), packed.end());
        fs::vectorfile stream;
        ASSERT_TRUE(stream.open_from_memory(EFSMode::READ, &member, true));
        std::string read(plain.size() + 1, '\0');
        read.resize(stream.read(read.data(), read.size()));
        EXPECT_TRUE(read == plain) << plain.size();
        EXPECT_TRUE(stream.check_zip_crc());
    }
}

constexpr const char* python_fields = R"(python3 - <<'END'
import struct, zlib
plain = open("in", "rb").read()
head = b"\x1f\x8b\x08\x1f" + struct.pack("<IBB", 1234567890, 2, 3)
head += struct.pack("<H", 9) + b"AB\5\0\xff\xff\0\xff\xff" + b"n\xc3\xa4me.txt\0" + b"a comment\0"
head += struct.pack("<H", zlib.crc32(head) & 0xffff)
deflate = zlib.compressobj(6, zlib.DEFLATED, -15)
body = deflate.compress(plain) + deflate.flush()
open("out", "wb").write(head + body + struct.pack("<II", zlib.crc32(plain), len(plain) & 0xffffffff))
END)";

const auto tool_name = [](const auto& tool) { return std::string(tool.param.name); };

INSTANTIATE_TEST_SUITE_P(
    GzipTools, ReadOurs,
    testing::Values(Tool{"gzip", "gzip --version", "cp in in.gz && gzip -t in.gz && gzip -dc in.gz >out"},
                    Tool{"zcat", "zcat --version", "zcat <in >out"},
                    Tool{"pigz", "pigz --version", "pigz -dc <in >out"},
                    Tool{"python", "python3 --version",
                         "python3 -c \"import gzip; open('out','wb').write(gzip.open('in').read())\""}),
    tool_name);

INSTANTIATE_TEST_SUITE_P(
    GzipTools, WriteForUs,
    testing::Values(Tool{"gzip", "gzip --version", "gzip -9 --name -c in >out"},
                    Tool{"gzip_without_name", "gzip --version", "gzip -1 -n <in >out"},
                    Tool{"pigz", "pigz --version", "pigz -p 4 -c in >out"},
                    Tool{"python", "python3 --version",
                         "python3 -c \"import gzip; gzip.open('out','wb').write(open('in','rb').read())\""},
                    Tool{"every_header_field", "python3 --version", python_fields}),
    tool_name);

}  // namespace
