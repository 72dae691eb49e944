// Members go both ways between us and the tools that people have.
#include <gtest/gtest.h>

#include <cstdlib>

#include <engine/filesystem/streams/memory.h>

#include "../../support/temp_directory.h"
#include "../recording_file.h"

namespace {

bool runs(const std::string& command) { return std::system(("{ " + command + "\n} >/dev/null 2>&1").c_str()) == 0; }

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

struct Tool {
    const char* name;
    const char* present;  // a command that succeeds where the tool is installed
    const char* unpacks;  // from "in" to "out"
    const char* packs;
};

const Tool tools[] = {
    {"gzip", "gzip --version", "cp in in.gz && gzip -t in.gz && gzip -dc in.gz >out", "gzip -9 --name -c in >out"},
    {"pigz", "pigz --version", "pigz -dc <in >out", "pigz -p 4 -c in >out"},
    {"python", "python3 --version", "python3 -c \"import gzip; open('out','wb').write(gzip.open('in').read())\"",
     python_fields},
};

struct GzipTools : testing::TestWithParam<Tool> {};

TEST_P(GzipTools, ReadOurMembersAndWriteOnesForUs) {
    const Tool& tool = GetParam();
    if (!runs(tool.present)) GTEST_SKIP() << tool.name << " is not installed";
    const TempDirectory directory;
    const std::string go = "cd '" + directory.path() + "' && ";
    std::string large;
    for (int i = 0; i < 20000; ++i) large += "line " + std::to_string(i * 31 % 1009) + "\n";
    for (const std::string& plain : {std::string(), std::string("abc"), large + sample_bytes(50000)}) {
        ztl::vector<unsigned char> member;
        fs::vectorfile stream;
        stream.open_from_memory(EFSMode::WRITE, &member, true);
        stream.write(plain.data(), plain.size());
        stream.close();
        directory.write("in", std::string(member.begin(), member.end()));
        ASSERT_TRUE(runs(go + tool.unpacks));
        EXPECT_TRUE(directory.read("out") == plain) << plain.size();

        directory.write("in", plain);
        ASSERT_TRUE(runs(go + tool.packs));
        const std::string packed = directory.read("out");
        member.assign(packed.begin(), packed.end());
        ASSERT_TRUE(stream.open_from_memory(EFSMode::READ, &member, true));
        std::string read(plain.size() + 1, '\0');
        read.resize(stream.read(read.data(), read.size()));
        EXPECT_TRUE(read == plain) << plain.size();
        EXPECT_TRUE(stream.check_zip_crc());
    }
}

INSTANTIATE_TEST_SUITE_P(All, GzipTools, testing::ValuesIn(tools),
                         [](const auto& tool) { return std::string(tool.param.name); });

}  // namespace
