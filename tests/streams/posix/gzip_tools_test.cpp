// Members go both ways between us and the tools that people have.
#include <gtest/gtest.h>

#include <cstdlib>

#include "../../support/temp_directory.h"
#include "../kit.h"

namespace {

bool runs(const std::string& command) { return std::system(("{ " + command + "\n} >/dev/null 2>&1").c_str()) == 0; }

struct GzipTools : testing::TestWithParam<const char*> {};

TEST_P(GzipTools, ReadOurMembersAndWriteOnesForUs) {
    const std::string tool = GetParam();
    if (!runs(tool + " --version")) GTEST_SKIP() << tool << " is not installed";
    const TempDirectory directory;
    const std::string run = "cd '" + directory.path() + "' && " + tool;
    std::string large = sample_bytes(50000);
    for (int i = 0; i < 20000; ++i) large += "line " + std::to_string(i * 31 % 1009) + "\n";
    for (const std::string& plain : {std::string(), std::string("abc"), large}) {
        directory.write("in.gz", gzip_member_of(plain));
        ASSERT_TRUE(runs(run + " -t in.gz"));
        ASSERT_TRUE(runs(run + " -dc in.gz >out"));
        EXPECT_TRUE(directory.read("out") == plain) << plain.size();

        directory.write("in", plain);
        ASSERT_TRUE(runs(run + " -9 --name -c in >out"));
        VectorStream member;
        ASSERT_TRUE(member.start_reading(directory.read("out"), true));
        EXPECT_TRUE(read_all(member.stream) == plain) << plain.size();
        EXPECT_TRUE(member.stream.check_zip_crc());
    }
}

INSTANTIATE_TEST_SUITE_P(All, GzipTools, testing::Values("gzip", "pigz"),
                         [](const auto& tool) { return std::string(tool.param); });

}  // namespace
