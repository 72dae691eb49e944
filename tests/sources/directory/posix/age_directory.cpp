#include "tests/sources/directory/age_directory.h"

#include <chrono>
#include <filesystem>

void age_directory(const std::string& path) {
    std::filesystem::last_write_time(path, std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
}

void change_unseen(const std::string& path, const std::function<void()>& change) {
    const auto time = std::filesystem::last_write_time(path);
    change();
    std::filesystem::last_write_time(path, time);
}
