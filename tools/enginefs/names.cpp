#include "names.h"

#include <chrono>
#include <fstream>
#include <ratio>
#include <system_error>

#include <engine/filesystem.h>

#include "report.h"

namespace stdfs = std::filesystem;

namespace {

constexpr std::size_t piece_size = 1u << 20;

template <class Call>
std::vector<SFsSourceInfo> ask_for_sources(const std::string& told, const Call& call) {
    return ask(told, [&] {
        std::vector<SFsSourceInfo> sources;
        call(sources);
        return sources;
    });
}

}  // namespace

fs::file_ptr open_file(const std::string& name) {
    fs::file_ptr file;
    attempt(name, "no source holds it", [&] {
        file = fs::open_file(name.c_str(), EFSMode::READ);
        return file != nullptr;
    });
    return file;
}

bool read_to_end(SFsFile* file, const std::string& name, const TakeBytes& take) {
    const std::uint64_t length = fs::length(file);
    std::uint64_t at = fs::tell(file);
    std::vector<char> buffer(piece_size);
    for (;;) {
        fs::clear_error();
        const std::uint64_t got = fs::read(file, buffer.data(), buffer.size());
        // Bytes may come and be known as damaged. What takes them may use the library, which forgets that.
        const SFsError error = fs::last_error();
        if (got != failed && got != 0 && !take(buffer.data(), got)) return false;
        if (got == failed || error.code != EFSError::NONE)
            return fail(name, error.text.empty() ? "it cannot be read" : error.text);
        if (got == 0) break;
        at += got;
    }
    return length == failed || at == length ||
           fail(name, "it ended after " + std::to_string(at) + " of " + std::to_string(length) + " bytes");
}

std::vector<SFsSourceInfo> all_sources() {
    return ask_for_sources("the sources", [](auto& sources) { fs::get_sources(sources); });
}

std::vector<SFsSourceInfo> holders_of(const std::string& name) {
    return ask_for_sources(name, [&](auto& sources) { fs::find_holders(name.c_str(), sources); });
}

std::vector<std::string> list_files(const char* dir, const char* mask, bool recursive) {
    const std::string told = dir != nullptr ? dir : "the names of all files";
    const fs::found_files found = ask(told, [&] { return fs::find_files(dir, mask, recursive); });
    return {found.begin(), found.end()};
}

bool is_directory(const std::string& name) {
    const std::string clean = normalised(name);
    return !clean.empty() && ask(name, [&] { return fs::search_dir(clean.c_str()); }) != nullptr;
}

bool fail_not_held(const std::string& name, const std::string& if_directory) {
    return fail(name, is_directory(name) ? if_directory : "no source holds it");
}

bool names_itself(const std::string& name) {
    if (fs::exists(name.c_str(), FFSOpenFlags::WHOLE_NAME)) return true;
    if (!ask(name, [&] { return fs::exists(name.c_str()); })) return true;
    return fail(name, "it finds " + fs::root_path(name.c_str()) + "; give that name to change it");
}

std::string place_on_disk(const std::string& name) {
    fs::string place;
    return ask(name, [&] { return fs::native_path(name.c_str(), place); }) ? place : "";
}

std::string time_of(const std::string& name) {
    using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;
    constexpr std::int64_t from_1601_to_1970 = 116'444'736'000'000'000;
    const std::string place = place_on_disk(name);
    std::error_code error;
    const auto time = place.empty() ? stdfs::file_time_type() : stdfs::last_write_time(fs::to_path(place), error);
    if (place.empty() || error) return "";
    const auto since_1970 = std::chrono::file_clock::to_sys(std::chrono::time_point_cast<Ticks>(time));
    const std::int64_t ticks = since_1970.time_since_epoch().count() + from_1601_to_1970;
    return ask(name, [&] { return fs::get_time_as_str(ticks); });
}

std::string lower_case(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return text;
}

std::string normalised(const std::string& name) {
    std::string out(name.size() + 1, '\0');
    fs::path_normalize(out.data(), name.c_str(), false);
    out.resize(out.find('\0'));
    return out;
}

std::string full_native_path(const std::string& path) {
    std::error_code error;
    const stdfs::path full = stdfs::absolute(fs::to_path(path), error);
    return error ? path : fs::from_path(full.lexically_normal());
}

bool read_lines(const std::string& path, std::vector<std::string>& lines) {
    std::ifstream in(fs::to_path(path));
    if (!in) return fail(path, "it cannot be read");
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!line.empty()) lines.push_back(line);
    }
    return true;
}
