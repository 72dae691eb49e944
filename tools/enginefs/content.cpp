// cat, cp: what is in a file.

#include <algorithm>
#include <memory>
#include <vector>

#include <CLI/CLI.hpp>

#include <engine/filesystem.h>

#include "commands.h"
#include "names.h"
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
        done += got;
    }
    if (length != failed && done != length)
        return fail(name, "it ended before its length, after " + std::to_string(done) + " bytes");
    return exit_ok;
}

/// Copies what is open. An empty text is success, else the reason.
std::string copy_content(SFsFile* from, SFsFile* to, const std::string& label) {
    const std::uint64_t length = fs::length(from);
    Progress progress(label, length == failed ? 0 : length, true);
    std::vector<char> buffer(piece_size);
    std::uint64_t done = 0;
    for (;;) {
        const std::uint64_t got = fs::read(from, buffer.data(), buffer.size());
        if (got == failed) return "the source cannot be read";
        if (got == 0) break;
        if (fs::write(to, buffer.data(), got) != got)
            return "the destination cannot be written: " + fs::last_error().text;
        done += got;
        progress.add(got);
    }
    return length == failed || done == length ? "" : "the source ended before its length";
}

int cp(const std::string& from, const std::string& to) {
    const FilePtr source(fs::open(from.c_str(), EFSMode::READ));
    if (source == nullptr) return fail_with_last_error(from, "no source holds it");
    fs::clear_error();
    const FilePtr target(fs::open(to.c_str(), EFSMode::WRITE));
    if (target == nullptr) return fail_with_last_error(to, "it cannot be created");
    const std::string reason = copy_content(source.get(), target.get(), "cp " + from);
    return reason.empty() ? exit_ok : fail(to, reason);
}

}  // namespace

void add_content_commands(CLI::App& app, Command& chosen) {
    CLI::App* const cat_command = app.add_subcommand("cat", "Write a file's content to standard output");
    auto name = std::make_shared<std::string>();
    cat_command->add_option("NAME", *name)->required();
    cat_command->callback([name, &chosen] { chosen.run = [name] { return cat(*name); }; });

    CLI::App* const cp_command =
        app.add_subcommand("cp", "Copy a file into the first source, or over a file that a source holds");
    auto from = std::make_shared<std::string>();
    auto to = std::make_shared<std::string>();
    cp_command->add_option("FROM", *from)->required();
    cp_command->add_option("TO", *to)->required();
    cp_command->callback([from, to, &chosen] { chosen.run = [from, to] { return cp(*from, *to); }; });
}
