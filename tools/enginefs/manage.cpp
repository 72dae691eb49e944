// rm, mkdir, mv, backup, crc, touch: changing files, and telling whether they are the same.

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include <engine/filesystem.h>

#include "commands.h"
#include "names.h"
#include "report.h"
#include "terminal.h"
#include "time_text.h"

namespace {

/// What else holds a name that is gone from one source; "" when nothing does.
std::string still_held(const std::string& name) {
    ztl::vector<SFsSourceInfo> holders;
    fs::find_holders(name.c_str(), holders);
    return holders.empty() ? "" : holders[0].path_name + holders[0].file_name;
}

int remove_directory(const std::string& name) {
    fs::clear_error();
    fs::rem_dir(name.c_str());
    return fs::last_error().code == EFSError::NONE ? exit_ok : fail_with_last_error(name, "it cannot be removed");
}

int remove_one(const std::string& name, bool recursive) {
    if (fs::exists(name.c_str())) {
        if (!names_itself(name)) return exit_failed;
        fs::clear_error();
        return fs::rem_file(name.c_str()) ? exit_ok : fail_with_last_error(name, "it cannot be removed");
    }
    if (recursive) return remove_directory(name);
    return fail(name,
                is_directory(name) ? "it is a directory; -r removes one with everything in it" : "no source holds it");
}

int rm(const std::vector<std::string>& names, bool recursive) {
    int status = exit_ok;
    for (const std::string& name : names) {
        if (remove_one(name, recursive) != exit_ok) {
            status = exit_failed;
            continue;
        }
        const std::string other = still_held(name);
        if (!other.empty()) note(name, "it was removed from one source; " + other + " holds it still");
    }
    return status;
}

int mkdir(const std::string& name) {
    if (fs::exists(name.c_str())) return fail(name, "a file of this name is there");
    fs::clear_error();
    return fs::mkdir(name.c_str()) ? exit_ok : fail_with_last_error(name, "it cannot be made");
}

int mv(const std::string& from, const std::string& to) {
    if (!fs::exists(from.c_str()))
        return fail(from, is_directory(from) ? "it is a directory; only files are renamed" : "no source holds it");
    if (!names_itself(from)) return exit_failed;
    if (is_directory(to)) return fail(to, "it is a directory; give the whole new name");
    fs::clear_error();
    return fs::rename(from.c_str(), to.c_str()) ? exit_ok : fail_with_last_error(from, "it cannot be renamed");
}

int backup(const std::string& name) {
    if (!fs::exists(name.c_str())) return fail(name, "no source holds it");
    if (!names_itself(name)) return exit_failed;
    fs::clear_error();
    fs::create_backup_copy(name.c_str());
    if (fs::last_error().code != EFSError::NONE) return fail_with_last_error(name, "it cannot be moved");
    return fs::exists((name + ".bak").c_str()) ? exit_ok : fail(name, "it has no backup afterwards");
}

/// Tells the progress of one checksum after another to one display.
struct CrcProgress {
    Progress* progress;
    std::uint64_t told;

    static bool tell(std::uint64_t done, std::uint64_t, void* user) {
        auto* const self = static_cast<CrcProgress*>(user);
        self->progress->add(done - self->told);
        self->told = done;
        return true;
    }
};

int crc(const std::vector<std::string>& names) {
    Progress progress("crc", 0, true);
    int status = exit_ok;
    for (const std::string& name : names) {
        CrcProgress told{&progress, 0};
        fs::CrcCalcArgs args;
        args.path = name.c_str();
        args.buffer_size = 1u << 20;
        args.progress = CrcProgress::tell;
        args.user = &told;
        fs::clear_error();
        if (!fs::calc_file_crc(args)) {
            status = fail_with_last_error(name, "it cannot be read");
            continue;
        }
        char columns[48];
        std::snprintf(columns, sizeof columns, "%08" PRIx32 " %12" PRIu64 "  ", args.crc, args.size);
        print(columns + name + "\n");
    }
    return status;
}

bool create_empty(const std::string& name) {
    fs::clear_error();
    return FilePtr(fs::open(name.c_str(), EFSMode::APPEND)) != nullptr;
}

int touch(const std::string& name, const std::string& time_text) {
    const std::optional<std::int64_t> time = time_text.empty() ? time_now() : parse_time(time_text);
    if (!time) {
        fail(time_text, "this is no time; give \"YYYY-MM-DD\", \"YYYY-MM-DD HH:MM:SS\" or @SECONDS, in UTC");
        return exit_usage;
    }
    if (!names_itself(name)) return exit_failed;
    if (!fs::exists(name.c_str()) && !create_empty(name)) return fail_with_last_error(name, "it cannot be created");
    if (fs::read_only(name.c_str())) return fail(name, "it is read-only");
    fs::clear_error();
    if (!fs::set_write_time(name.c_str(), *time)) return fail_with_last_error(name, "its source keeps no such time");
    constexpr std::uint32_t coarsest_ms = 2000;  // of the file systems that are in use
    return fs::compare_time(fs::write_time(name.c_str()), *time, coarsest_ms) == 0
               ? exit_ok
               : fail(name, "its source took another time for this one");
}

void add_rm(CLI::App& app, Command& chosen) {
    CLI::App* const sub =
        app.add_subcommand("rm", "Remove files, each from the first source that holds it, which must be writable");
    auto names = std::make_shared<std::vector<std::string>>();
    auto recursive = std::make_shared<bool>(false);
    sub->add_option("NAME", *names)->required();
    sub->add_flag("-r,--recursive", *recursive,
                  "Remove directories too, with everything that their first writable source has in them");
    sub->callback([=, &chosen] { chosen.run = [=] { return rm(*names, *recursive); }; });
}

void add_mv(CLI::App& app, Command& chosen) {
    CLI::App* const sub = app.add_subcommand("mv", "Rename a file within the source that holds it");
    auto from = std::make_shared<std::string>();
    auto to = std::make_shared<std::string>();
    sub->add_option("FROM", *from)->required();
    sub->add_option("TO", *to, "The whole new name, which no source may hold yet")->required();
    sub->callback([=, &chosen] { chosen.run = [=] { return mv(*from, *to); }; });
}

void add_crc(CLI::App& app, Command& chosen) {
    CLI::App* const sub = app.add_subcommand("crc", "Print CRC-32, size and name of files");
    auto names = std::make_shared<std::vector<std::string>>();
    sub->add_option("NAME", *names)->required();
    sub->callback([names, &chosen] { chosen.run = [names] { return crc(*names); }; });
}

void add_touch(CLI::App& app, Command& chosen) {
    CLI::App* const sub =
        app.add_subcommand("touch", "Set the write time of a file, which is made, empty, when no source holds it");
    auto name = std::make_shared<std::string>();
    auto time = std::make_shared<std::string>();
    sub->add_option("NAME", *name)->required();
    sub->add_option("--time", *time,
                    "\"YYYY-MM-DD\", \"YYYY-MM-DD HH:MM:SS\" or @SECONDS since 1970, in UTC (default: now)")
        ->type_name("T");
    sub->callback([=, &chosen] { chosen.run = [=] { return touch(*name, *time); }; });
}

}  // namespace

void add_manage_commands(CLI::App& app, Command& chosen) {
    add_rm(app, chosen);
    add_name_command(app, chosen, "mkdir", "Make a directory, and those above it, in the first source", "DIR", mkdir);
    add_mv(app, chosen);
    add_name_command(app, chosen, "backup",
                     "Move a file into its newest backup NAME.bak, and older ones to .ba1, .ba2 and .ba3; NAME itself "
                     "is gone afterwards",
                     "NAME", backup);
    add_crc(app, chosen);
    add_touch(app, chosen);
}
