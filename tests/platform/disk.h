#pragma once

#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

#include "engine/platform/directories.h"
#include "engine/platform/error.h"
#include "engine/platform/files.h"
#include "tests/support/child_process.h"
#include "tests/support/run_together.h"
#include "tests/support/temp_directory.h"

/// What the tests of files and directories share. They look at the disk through the standard library, so that the seam
/// does not vouch for itself.
namespace disk {

using namespace platform;

constexpr OpenOptions for_reading{};
constexpr OpenOptions for_writing{.access = Access::WRITE};
constexpr OpenOptions for_both{.access = Access::READ_WRITE};
constexpr OpenOptions for_creating{.access = Access::WRITE, .disposition = Disposition::TRUNCATE_OR_CREATE};
constexpr OpenOptions alone{.sharing = Sharing::NONE};

inline Failure outcome(bool done) { return done ? Failure::NONE : last_error().failure; }
inline Failure try_open(const std::string& path, const OpenOptions& options) {
    return outcome(File::open(path.c_str(), options).valid());
}
/// The same for "file" of the current folder in a process of its own, which then ends with the file open.
inline Failure try_open_elsewhere(const OpenOptions& options) {
    write_file("options", {reinterpret_cast<const char*>(&options), sizeof(options)});
    return static_cast<Failure>(run_children(1, "OtherProcess.DISABLED_Opens", ".").front().exit_code);
}

inline std::vector<std::string> names_in(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& item : std::filesystem::directory_iterator(directory)) {
        names.push_back(item.path().filename().string());
    }
    return names;
}
inline std::vector<std::string> names_of(const DirectoryListing& listing) {
    std::vector<std::string> names;
    for (const DirectoryItem& item : listing.items()) names.emplace_back(item.name, item.length);
    return names;
}
/// What could be listed of a directory.
inline std::vector<std::string> list(const std::string& path) {
    DirectoryListing listing;
    list_directory({path.c_str()}, listing);
    return names_of(listing);
}
/// "" when it fails.
inline std::string spelled(const std::string& path) {
    char out[path_buffer_size];
    return resolve_case(path.c_str(), out) ? out : "";
}

/// A fresh folder that is current while the test runs.
class DiskTest : public testing::Test {
protected:
    DiskTest() { std::filesystem::current_path(folder_.path()); }
    ~DiskTest() override {
        clear_faults();
        std::filesystem::current_path(home_);
    }

private:
    const std::filesystem::path home_ = std::filesystem::current_path();
    const TempDirectory folder_;
};

}  // namespace disk

namespace platform {
inline void PrintTo(Failure failure, std::ostream* out) { *out << "Failure " << static_cast<int>(failure); }
}  // namespace platform
