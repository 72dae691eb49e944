// gzip, gunzip: files to gzip members and back.

#include <cstdint>
#include <memory>
#include <vector>

#include <CLI/CLI.hpp>

#include <engine/filesystem.h>

#include "commands.h"
#include "member_file.h"
#include "names.h"
#include "output.h"
#include "report.h"
#include "terminal.h"

namespace {

constexpr std::size_t piece_size = 1u << 20;
constexpr std::uint64_t failed = ~std::uint64_t{0};

/// An empty text is success, else the reason.
std::string compress(SFsFile* from, std::uint64_t length, MemberFile& member, Progress& progress) {
    std::vector<char> buffer(piece_size);
    std::uint64_t done = 0;
    for (;;) {
        const std::uint64_t got = fs::read(from, buffer.data(), buffer.size());
        if (got == failed) return "the source cannot be read";
        if (got == 0) break;
        if (member.write(buffer.data(), got) != got) break;
        done += got;
        progress.add(got);
    }
    member.close();
    if (member.write_failed()) return "it cannot be written: " + member.write_error();
    return length == failed || done == length ? "" : "the source ended before its length";
}

int gzip(const std::string& name, const std::string& out) {
    const FilePtr source(fs::open(name.c_str(), EFSMode::READ));
    if (source == nullptr) return fail_with_last_error(name, "no source holds it");
    const std::uint64_t length = fs::length(source.get());
    if (!names_itself(out)) return exit_failed;
    Output output(out);
    if (output.file() == nullptr) return fail_with_last_error(out, "it cannot be created");
    MemberFile member(output.file(), 0);
    if (!member.init(EFSMode::WRITE, true)) return fail(out, "there is no memory for its compression");
    Progress progress("gzip " + name, length == failed ? 0 : length, true);
    const std::string wrong = compress(source.get(), length, member, progress);
    if (!wrong.empty()) return fail(out, wrong + "; it was not made");
    output.finish();
    return exit_ok;
}

bool is_zero_padding(SFsFile* file, std::uint64_t start) {
    if (!fs::seek(file, static_cast<std::int64_t>(start), EFSSeek::BEGIN)) return false;
    std::vector<char> buffer(piece_size);
    for (;;) {
        const std::uint64_t got = fs::read(file, buffer.data(), buffer.size());
        if (got == failed) return false;
        if (got == 0) return true;
        for (std::uint64_t i = 0; i < got; ++i)
            if (buffer[i] != 0) return false;
    }
}

/// Decodes all members of a file, one behind the other. An empty text is success, else the reason.
std::string decode_all(SFsFile* file, std::uint64_t length, const TakeBytes& take) {
    std::uint64_t start = 0;
    do {
        const MemberResult result = decode_member(file, start, take);
        if (!result.wrong.empty()) return "the member at offset " + std::to_string(start) + ": " + result.wrong;
        start = result.end;
    } while (start < length && !is_zero_padding(file, start));
    return "";
}

/// What is there already is not given up for a damaged file, so that is read once for nothing first.
std::string check_before_replacing(SFsFile* file, std::uint64_t length, const std::string& name) {
    Progress progress("check " + name, 0, true);
    return decode_all(file, length, [&progress](const char*, std::uint64_t size) {
        progress.add(size);
        return true;
    });
}

int gunzip(const std::string& name, const std::string& out) {
    const FilePtr source(fs::open(name.c_str(), EFSMode::READ));
    if (source == nullptr) return fail_with_last_error(name, "no source holds it");
    const std::uint64_t length = fs::length(source.get());
    if (length == failed) return fail(name, "its length is not known");
    if (!names_itself(out)) return exit_failed;
    if (fs::exists(out.c_str())) {
        const std::string wrong = check_before_replacing(source.get(), length, name);
        if (!wrong.empty()) return fail(name, wrong + "; " + out + " is as it was");
    }
    Output output(out);
    if (output.file() == nullptr) return fail_with_last_error(out, "it cannot be created");
    Progress progress("gunzip " + name, 0, true);
    bool written = true;
    const std::string wrong = decode_all(source.get(), length, [&](const char* data, std::uint64_t size) {
        progress.add(size);
        return written = fs::write(output.file(), data, size) == size;
    });
    if (!written) return fail(out, "it cannot be written: " + fs::last_error().text + "; it was not made");
    if (!wrong.empty()) return fail(name, wrong + "; " + out + " was not made");
    output.finish();
    return exit_ok;
}

void add_pair(CLI::App& app, Command& chosen, const char* command, const char* help,
              int (*run)(const std::string&, const std::string&)) {
    CLI::App* const sub = app.add_subcommand(command, help);
    auto name = std::make_shared<std::string>();
    auto out = std::make_shared<std::string>();
    sub->add_option("NAME", *name, "The file that is read")->required();
    sub->add_option("OUT", *out, "The file that is written, replaced when it is there")->required();
    sub->callback([=, &chosen] { chosen.run = [=] { return run(*name, *out); }; });
}

}  // namespace

void add_stream_commands(CLI::App& app, Command& chosen) {
    add_pair(app, chosen, "gzip", "Write a file as one gzip member (level 9); both names are virtual", gzip);
    add_pair(app, chosen, "gunzip",
             "Write what the gzip members of a file hold, checked against their checksums and lengths; a damaged one "
             "leaves OUT as it was, or not made",
             gunzip);
}
