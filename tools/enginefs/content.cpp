// cat, cp: what is in a file.

#include <memory>
#include <vector>

#include <CLI/CLI.hpp>

#include <engine/filesystem.h>

#include "commands.h"
#include "names.h"
#include "output.h"
#include "report.h"
#include "terminal.h"

namespace {

constexpr std::size_t piece_size = 1u << 20;
constexpr std::uint64_t failed = ~std::uint64_t{0};

int cat(const std::string& name) {
    const FilePtr file(fs::open(name.c_str(), EFSMode::READ));
    if (file == nullptr) return fail_with_last_error(name, "no source holds it");
    const std::uint64_t length = fs::length(file.get());
    std::vector<char> buffer(piece_size);
    std::uint64_t done = 0;
    for (;;) {
        const std::uint64_t got = fs::read(file.get(), buffer.data(), buffer.size());
        if (got == failed) return fail_with_last_error(name, "it cannot be read");
        if (got == 0) break;
        print_bytes(buffer.data(), got);
        if (!is_output_good()) return exit_failed;  // told at the end
        done += got;
    }
    if (length != failed && done != length)
        return fail(name, "it ended before its length, after " + std::to_string(done) + " bytes");
    return exit_ok;
}

/// Reads to the end, and writes what it reads where `to` is not null. An empty text is success, else the reason.
std::string copy_content(SFsFile* from, SFsFile* to, const std::string& label) {
    const std::uint64_t length = fs::length(from);
    Progress progress(label, length == failed ? 0 : length, true);
    std::vector<char> buffer(piece_size);
    std::uint64_t done = 0;
    for (;;) {
        fs::clear_error();
        const std::uint64_t got = fs::read(from, buffer.data(), buffer.size());
        if (got == failed) return "the source cannot be read: " + fs::last_error().text;
        if (got == 0) break;
        if (to != nullptr && fs::write(to, buffer.data(), got) != got)
            return "it cannot be written: " + fs::last_error().text;
        done += got;
        progress.add(got);
    }
    return length == failed || done == length ? "" : "the source ended before its length";
}

/// What is there already is not given up for a file that cannot be read: that is read once for nothing first.
std::string check_before_replacing(SFsFile* from, const std::string& label) {
    const std::string wrong = copy_content(from, nullptr, label);
    if (!wrong.empty()) return wrong;
    return fs::seek(from, 0, EFSSeek::BEGIN) ? "" : "the source cannot be read twice";
}

int cp(const std::string& from, const std::string& to) {
    const FilePtr source(fs::open(from.c_str(), EFSMode::READ));
    if (source == nullptr) return fail_with_last_error(from, "no source holds it");
    if (!names_itself(to)) return exit_failed;
    if (fs::exists(to.c_str())) {
        const std::string wrong = check_before_replacing(source.get(), "check " + from);
        if (!wrong.empty()) return fail(to, wrong + "; it is as it was");
    }
    Output target(to);
    if (target.file() == nullptr) return fail_with_last_error(to, "it cannot be created");
    const std::string wrong = copy_content(source.get(), target.file(), "cp " + from);
    if (!wrong.empty()) return fail(to, wrong + "; it was not made");
    target.finish();
    return exit_ok;
}

}  // namespace

void add_content_commands(CLI::App& app, Command& chosen) {
    CLI::App* const cat_command = app.add_subcommand("cat", "Write a file's content to standard output");
    auto name = std::make_shared<std::string>();
    cat_command->add_option("NAME", *name, "The file; its end is enough where that names no other")->required();
    cat_command->callback([name, &chosen] { chosen.run = [name] { return cat(*name); }; });

    CLI::App* const cp_command =
        app.add_subcommand("cp", "Copy a file into the first source, or over a file that a source holds");
    auto from = std::make_shared<std::string>();
    auto to = std::make_shared<std::string>();
    cp_command->add_option("FROM", *from, "The file that is read")->required();
    cp_command->add_option("TO", *to, "The whole name of the file that is written, replaced when it is there")
        ->required();
    cp_command->callback([from, to, &chosen] { chosen.run = [from, to] { return cp(*from, *to); }; });
}
