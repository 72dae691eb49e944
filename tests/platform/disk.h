#pragma once

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "engine/platform/directories.h"
#include "engine/platform/faults.h"
#include "engine/platform/files.h"

/// What the tests of files and directories share. They look at the disk through the standard library, so that the seam
/// does not vouch for itself.
namespace disk {

inline void put(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

inline std::string get(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

inline std::vector<std::string> names_in(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& item : std::filesystem::directory_iterator(directory)) {
        names.push_back(item.path().filename().string());
    }
    return names;
}

/// A fresh folder that is current while the test runs.
class DiskTest : public testing::Test {
protected:
    void SetUp() override {
        home_ = std::filesystem::current_path();
        folder_ = home_ / testing::UnitTest::GetInstance()->current_test_info()->name();
        std::filesystem::create_directory(folder_);
        std::filesystem::current_path(folder_);
    }
    void TearDown() override {
        platform::clear_faults();
        std::filesystem::current_path(home_);
        std::error_code left_to_the_end_of_the_run;  // by read-only files on Windows
        std::filesystem::remove_all(folder_, left_to_the_end_of_the_run);
    }
    std::string path_to(const std::string& name) const { return (folder_ / name).generic_string(); }

private:
    std::filesystem::path home_;
    std::filesystem::path folder_;
};

}  // namespace disk

namespace platform {
inline void PrintTo(Failure failure, std::ostream* out) { *out << "Failure " << static_cast<int>(failure); }
}  // namespace platform
