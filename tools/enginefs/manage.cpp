// rm, mkdir, mv, backup, crc, touch: changing files, and telling whether they are the same.

#include <chrono>
#include <ctime>
#include <iomanip>
#include <sstream>
#include <system_error>
#include <utility>

#include "command.h"

namespace {

namespace chrono = std::chrono;

struct Rm {
    std::vector<std::string> names;
    bool recursive = false;
};

bool remove_directory(const std::string& name) {
    if (!fs::to_path(full_native_path(name)).has_relative_path()) return fail(name, "it is the whole disk");
    fs::clear_error();
    fs::rem_dir(name.c_str());
    if (fs::last_error().code != EFSError::NONE) return fail_with_last_error(name, "it cannot be removed");
    if (is_directory(name)) note(name, "it was removed from one source; another has it still");
    return true;
}

bool remove_one(const std::string& name, bool recursive) {
    if (const std::string exact = exact_spelling(name); !exact.empty())
        return holders_of(name)[0].writable ? remove_on_disk(exact) : fail(name, "its source cannot be written to");
    if (recursive && is_directory(name)) return remove_directory(name);
    if (!can_change(name, "it is a directory; -r removes one with everything in it") ||
        !attempt(name, "it cannot be removed", [&] { return fs::rem_file(name.c_str()); }))
        return false;
    if (is_listed(name))
        note(name, "it was removed from one source; " + place_of(holders_of(name)[0]) + " holds it still");
    return true;
}

bool rm(const Rm& given) {
    return for_each_file(given.names, [&](const std::string& name) { return remove_one(name, given.recursive); });
}

bool mkdir(const std::string& name) {
    if (is_listed(name)) return fail(name, "a file of this name is there");
    return attempt(name, "it cannot be made", [&] { return fs::mkdir(name.c_str()); });
}

bool mv(const FromTo& given) {
    if (is_directory(given.from)) return fail(given.from, "it is a directory; only files are renamed");
    return can_change(given.from) && attempt(given.from, "it cannot be renamed",
                                             [&] { return fs::rename(given.from.c_str(), given.to.c_str()); });
}

bool backup(const std::string& name) {
    const Interruption interruption;  // a move is a copy and a removal
    if (!can_change(name)) return false;
    for (const char* const extension : {".bak", ".ba1", ".ba2", ".ba3"})
        if (!names_itself(name + extension)) return false;
    fs::clear_error();
    fs::create_backup_copy(name.c_str());
    if (fs::last_error().code != EFSError::NONE) return fail_with_last_error(name, "it cannot be moved");
    return fs::exists((name + ".bak").c_str()) || fail(name, "it has no backup afterwards");
}

struct Crc {
    std::vector<std::string> names;
    NameForm form;
};

/// The bytes of files for a Progress; 0 where no terminal shows it.
std::uint64_t size_to_watch(const std::vector<std::string>& names) {
    std::uint64_t total = 0;
    for (std::size_t i = 0; is_terminal(2) && i < names.size(); ++i) {
        const std::uint64_t size = fs::length(fs::open_file(names[i].c_str(), EFSMode::READ).get());
        total += size != failed ? size : 0;
    }
    return total;
}

bool crc(const Crc& given) {
    std::vector<std::string> names = given.names;
    const bool all_match = expand(names);
    struct Told {
        Progress progress;
        std::uint64_t done;
    } told{{"crc", size_to_watch(names), true}, 0};
    const auto tell = [](std::uint64_t done, std::uint64_t, void* user) {
        auto& all = *static_cast<Told*>(user);
        all.progress.add(done - std::exchange(all.done, done));
        return true;
    };
    Listing listing;
    const bool good = for_all(names, [&](const std::string& file) {
        fs::CrcCalcArgs args{.path = file.c_str(), .buffer_size = 1u << 20, .progress = tell, .user = &told};
        told.done = 0;
        fs::clear_error();
        if (!fs::calc_file_crc(args)) return fail_to_read(file);
        listing.add(
            {{"name", told_name(file, given.form)}, {"crc", args.crc, Field::hexadecimal}, {"size", args.size, 12}});
        return true;
    });
    return listing.finish() && good && all_match;
}

struct Touch {
    std::vector<std::string> names;
    std::string time;
};

/// What a text names: a date, with a time of day behind a "T" or a blank, with a zone, "Z" or "+HH:MM", behind that; or
/// "@SECONDS" since 1970.
std::optional<chrono::sys_seconds> parse_time(const std::string& text) {
    std::int64_t seconds = 0;
    std::istringstream in(text);
    const auto next = [&in] { return in.rdbuf()->sgetc(); };
    if (next() == '@') {
        in.ignore() >> seconds;
    } else {
        std::tm fields{}, zone{};
        in >> std::get_time(&fields, "%Y-%m-%d");
        if (next() == 'T' || next() == ' ') in.ignore() >> std::get_time(&fields, "%H:%M:%S");
        const int sign = next() == '-' ? -1 : 1;
        const std::streamsize left = in.rdbuf()->in_avail();
        if (next() == 'Z')
            in.ignore();
        else if ((next() == '+' || next() == '-') && left == 6)
            in.ignore() >> std::get_time(&zone, "%H:%M");
        const chrono::year_month_day date(chrono::year(fields.tm_year + 1900),
                                          chrono::month(static_cast<unsigned>(fields.tm_mon + 1)),
                                          chrono::day(static_cast<unsigned>(fields.tm_mday)));
        if (!date.ok()) return std::nullopt;
        seconds = chrono::sys_seconds(chrono::sys_days(date)).time_since_epoch().count() + fields.tm_hour * 3600 +
                  fields.tm_min * 60 + fields.tm_sec - sign * (zone.tm_hour * 3600 + zone.tm_min * 60);
    }
    // 1883 to 2465: what the standard library's clock of files can tell.
    if (in.fail() || next() != EOF || seconds < -2'745'446'400 || seconds >= 15'652'310'400) return std::nullopt;
    return chrono::sys_seconds(chrono::seconds(seconds));
}

bool set_time(const std::string& name, chrono::sys_seconds time) {
    if (is_directory(name)) return fail(name, "it is a directory");
    const auto create = [&] { return fs::file_ptr(fs::open(name.c_str(), EFSMode::APPEND)) != nullptr; };
    if (!fs::exists(name.c_str()) && !attempt(name, "it cannot be created", create)) return false;
    if (!can_change(name)) return false;
    if (fs::read_only(name.c_str())) return fail(name, "it is read-only");
    // The sources count in zones of their own, and local time has hours that come twice: the disk knows neither.
    const std::string place = place_on_disk(name);
    if (place.empty()) return fail(name, "its source keeps no such time");
    std::error_code error;
    std::filesystem::last_write_time(fs::to_path(place), chrono::file_clock::from_sys(time), error);
    return !error || fail(name, "its time cannot be set: " + error.message());
}

bool touch(const Touch& given) {
    const auto now = chrono::floor<chrono::seconds>(chrono::system_clock::now());
    const std::optional<chrono::sys_seconds> time = given.time.empty() ? now : parse_time(given.time);
    if (!time)
        fail_usage(given.time,
                   "this is no time; give \"YYYY-MM-DD\", \"YYYY-MM-DDTHH:MM:SS\", in UTC unless \"+HH:MM\" follows, "
                   "or @SECONDS, from 1883 on");
    return for_each_file(given.names, [&](const std::string& name) { return set_time(name, *time); });
}

}  // namespace

void add_manage_commands(Commands& commands) {
    const auto remove =
        commands.add("rm", "Remove files, each from the first source that holds it, which must be writable", rm);
    remove->add_option("NAME", remove.given.names)->required();
    remove->add_flag("-r,--recursive", remove.given.recursive,
                     "Remove directories too, with everything that their first writable source has in them");

    commands.add("mkdir", "Make a directory, and those above it, in the root", "DIR", mkdir);

    commands.add_moving("mv", "Rename files within the source that holds them, to names that no source holds yet", mv);

    commands.add("backup",
                 "Move files into their newest backups NAME.bak, and older ones to .ba1, .ba2 and .ba3; NAME itself "
                 "is gone afterwards",
                 "NAME", backup);

    const auto checksum = commands.add("crc", "Print CRC-32, size and name of files", crc);
    checksum->add_option("NAME", checksum.given.names)->required();
    commands.add_forms_of_files(checksum);

    const auto set =
        commands.add("touch", "Set the write time of files, which are made, empty, when no source holds them", touch);
    set->add_option("NAME", set.given.names)->required();
    add_option(set.app, "--time T", set.given.time,
               "\"YYYY-MM-DD\", \"YYYY-MM-DDTHH:MM:SS\", in UTC unless a zone as \"+01:00\" follows, or @SECONDS "
               "since 1970 (default: now)");
}
