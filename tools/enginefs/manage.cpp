// rm, mkdir, mv, backup, crc, touch: changing files, and telling whether they are the same.

#include <charconv>
#include <chrono>
#include <cinttypes>
#include <ctime>
#include <iomanip>
#include <optional>
#include <sstream>
#include <system_error>
#include <utility>

#include <engine/filesystem.h>

#include "commands.h"
#include "names.h"
#include "report.h"
#include "terminal.h"

namespace {

namespace chrono = std::chrono;

struct Rm {
    std::vector<std::string> names;
    bool recursive = false;
};

bool remove_directory(const std::string& name) {
    fs::clear_error();
    fs::rem_dir(name.c_str());
    if (fs::last_error().code != EFSError::NONE) return fail_with_last_error(name, "it cannot be removed");
    return !is_directory(name) || fail(name, "it is still there: not everything in it could be removed");
}

bool remove_one(const std::string& name, bool recursive) {
    if (fs::exists(name.c_str()))
        return names_itself(name) && attempt(name, "it cannot be removed", [&] { return fs::rem_file(name.c_str()); });
    return recursive ? remove_directory(name)
                     : fail_not_held(name, "it is a directory; -r removes one with everything in it");
}

bool rm(const Rm& given) {
    bool good = true;
    for (const std::string& name : given.names) {
        const bool removed = remove_one(name, given.recursive);
        const std::vector<SFsSourceInfo> others = removed ? holders_of(name) : std::vector<SFsSourceInfo>();
        if (!others.empty())
            note(name,
                 "it was removed from one source; " + others[0].path_name + others[0].file_name + " holds it still");
        good = removed && good;
    }
    return good;
}

bool mkdir(const Name& given) {
    if (fs::exists(given.name.c_str())) return fail(given.name, "a file of this name is there");
    return attempt(given.name, "it cannot be made", [&] { return fs::mkdir(given.name.c_str()); });
}

bool mv(const FromTo& given) {
    if (!fs::exists(given.from.c_str())) return fail_not_held(given.from, "it is a directory; only files are renamed");
    if (!names_itself(given.from)) return false;
    if (is_directory(given.to)) return fail(given.to, "it is a directory; give the whole new name");
    return attempt(given.from, "it cannot be renamed",
                   [&] { return fs::rename(given.from.c_str(), given.to.c_str()); });
}

bool backup(const Name& given) {
    const std::string& name = given.name;
    if (!fs::exists(name.c_str())) return fail(name, "no source holds it");
    if (!names_itself(name)) return false;
    fs::clear_error();
    fs::create_backup_copy(name.c_str());
    if (fs::last_error().code != EFSError::NONE) return fail_with_last_error(name, "it cannot be moved");
    return fs::exists((name + ".bak").c_str()) || fail(name, "it has no backup afterwards");
}

struct Crc {
    std::vector<std::string> names;
};

bool crc(const Crc& given) {
    struct Told {
        Progress progress{"crc", 0, true};
        std::uint64_t done = 0;
    } told;
    const auto tell = [](std::uint64_t done, std::uint64_t, void* user) {
        auto& all = *static_cast<Told*>(user);
        all.progress.add(done - std::exchange(all.done, done));
        return true;
    };
    bool good = true;
    for (const std::string& name : given.names) {
        fs::CrcCalcArgs args{.path = name.c_str(), .buffer_size = 1u << 20, .progress = tell, .user = &told};
        told.done = 0;
        const bool read = attempt(name, "it cannot be read", [&] { return fs::calc_file_crc(args); });
        if (read) print(formatted("%08" PRIx32 " %12" PRIu64 "  ", args.crc, args.size) + name + "\n");
        good = read && good;
    }
    return good;
}

struct Touch {
    std::string name;
    std::string time;
};

/// What a text names: "YYYY-MM-DD", "YYYY-MM-DD HH:MM:SS" (also with a "T") or "@SECONDS" since 1970.
std::optional<chrono::sys_seconds> parse_time(const std::string& text) {
    std::int64_t seconds = 0;
    const char* const end = text.data() + text.size();
    if (text.starts_with('@')) {
        const auto [stop, error] = std::from_chars(text.data() + 1, end, seconds);
        if (error != std::errc() || stop != end) return std::nullopt;
    } else {
        std::tm fields{};
        std::istringstream in(text.size() == 10 ? text + " 00:00:00" : text);
        in >> std::get_time(&fields, text.find('T') != std::string::npos ? "%Y-%m-%dT%H:%M:%S" : "%Y-%m-%d %H:%M:%S");
        const chrono::year_month_day date(chrono::year(fields.tm_year + 1900),
                                          chrono::month(static_cast<unsigned>(fields.tm_mon + 1)),
                                          chrono::day(static_cast<unsigned>(fields.tm_mday)));
        if (in.fail() || in.peek() != std::istringstream::traits_type::eof() || !date.ok()) return std::nullopt;
        seconds = chrono::sys_seconds(chrono::sys_days(date)).time_since_epoch().count() + fields.tm_hour * 3600 +
                  fields.tm_min * 60 + fields.tm_sec;
    }
    // 1883 to 2465: what the standard library's clock of files can tell.
    if (seconds < -2'745'446'400 || seconds >= 15'652'310'400) return std::nullopt;
    return chrono::sys_seconds(chrono::seconds(seconds));
}

bool touch(const Touch& given) {
    const std::string& name = given.name;
    const auto now = chrono::floor<chrono::seconds>(chrono::system_clock::now());
    const std::optional<chrono::sys_seconds> time = given.time.empty() ? now : parse_time(given.time);
    if (!time)
        fail_usage(given.time,
                   "this is no time; give \"YYYY-MM-DD\", \"YYYY-MM-DD HH:MM:SS\" or @SECONDS, in UTC, from 1883 on");
    if (!names_itself(name)) return false;
    const auto create = [&] { return fs::file_ptr(fs::open(name.c_str(), EFSMode::APPEND)) != nullptr; };
    if (!fs::exists(name.c_str()) && !attempt(name, "it cannot be created", create)) return false;
    if (fs::read_only(name.c_str()) || fs::is_protected(name.c_str())) return fail(name, "it is read-only");
    // The sources count in zones of their own, and local time has hours that come twice: the disk knows neither.
    const std::string place = place_on_disk(name);
    if (place.empty()) return fail(name, "its source keeps no such time");
    std::error_code error;
    std::filesystem::last_write_time(fs::to_path(place), chrono::file_clock::from_sys(*time), error);
    return !error || fail(name, "its time cannot be set: " + error.message());
}

}  // namespace

void add_manage_commands(Commands& commands) {
    const auto remove =
        commands.add("rm", "Remove files, each from the first source that holds it, which must be writable", rm);
    remove->add_option("NAME", remove.given.names)->required();
    remove->add_flag("-r,--recursive", remove.given.recursive,
                     "Remove directories too, with everything that their first writable source has in them");

    commands.add("mkdir", "Make a directory, and those above it, in the first source", "DIR", mkdir);

    const auto move = commands.add("mv", "Rename a file within the source that holds it", mv);
    move->add_option("FROM", move.given.from)->required();
    move->add_option("TO", move.given.to, "The whole new name, which no source may hold yet")->required();

    commands.add("backup",
                 "Move a file into its newest backup NAME.bak, and older ones to .ba1, .ba2 and .ba3; NAME itself "
                 "is gone afterwards",
                 "NAME", backup);

    const auto checksum = commands.add("crc", "Print CRC-32, size and name of files", crc);
    checksum->add_option("NAME", checksum.given.names)->required();

    const auto set_time =
        commands.add("touch", "Set the write time of a file, which is made, empty, when no source holds it", touch);
    set_time->add_option("NAME", set_time.given.name)->required();
    set_time
        ->add_option("--time", set_time.given.time,
                     "\"YYYY-MM-DD\", \"YYYY-MM-DD HH:MM:SS\" or @SECONDS since 1970, in UTC (default: now)")
        ->type_name("T");
}
