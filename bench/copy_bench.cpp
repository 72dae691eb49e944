// fs::copy beside the copying program of the system, told to move the bytes and share nothing. Both make a new file in
// the page cache from one that is there already; what was made goes before the disk has anything of it. On a virtual
// machine that gives free memory back to its host the large file tells more of the host than of the copies: the small
// one finds the pages that the copy before it has left.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <benchmark/benchmark.h>

#include <engine/filesystem.h>

#include "bench/support/paired.h"

namespace {

/// A root directory of its own with one large file that the disk has.
struct Bed {
    explicit Bed(std::size_t file_size)
        : root((std::filesystem::temp_directory_path() / "copy_bench").generic_string()) {
        std::filesystem::remove_all(root);
        std::filesystem::create_directories(root);
        fs::init(root.c_str(), FFSAddSourceFlags::NONE, "", false, false, nullptr);
        std::string piece(std::size_t{16} << 20, '\0');
        for (std::size_t i = 0; i < piece.size(); ++i) piece[i] = static_cast<char>(i * 7 + i / 4099);
        std::ofstream file(root + "/from.bin", std::ios::binary);
        for (std::size_t at = 0; at < file_size; at += piece.size()) file << piece;
        file.close();
        fs::refresh();
        if (std::system("sync") != 0) std::abort();
    }
    ~Bed() {
        fs::shutdown();
        std::filesystem::remove_all(root);
    }
    const std::string root;
};

/// The arguments are the buffer's size in KiB, 0 for the default one, and the file's in MiB.
void CopyBesideTheSystems(benchmark::State& state) {
    const auto file_size = static_cast<std::size_t>(state.range(1)) << 20;
    const Bed bed(file_size);
    const auto buffer_size = static_cast<std::uint32_t>(state.range(0)) << 10;
    const std::string command = "exec cp --reflink=never '" + bed.root + "/from.bin' '" + bed.root + "/theirs.bin'";
    const auto clear = [&bed] {
        fs::rem_file("ours.bin", FFSOpenFlags::NONE);
        std::filesystem::remove(bed.root + "/theirs.bin");
    };
    const auto ours = [&] {
        if (!fs::copy("from.bin", "ours.bin", buffer_size)) state.SkipWithError("not copied");
    };
    const auto theirs = [&] {
        if (std::system(command.c_str()) != 0) state.SkipWithError("there is no such program");
    };
    const int rounds = file_size > (std::size_t{1} << 29) ? 5 : 15;
    paired::compare_prepared(state, file_size >> 20, rounds, clear, ours, theirs);
}
BENCHMARK(CopyBesideTheSystems)
    ->ArgNames({"buffer_KiB", "file_MiB"})
    ->ArgsProduct({{1024, 0}, {256, 1024}})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

/// A save that takes the place of the one before, beside the same done by hand: written beside it, waited for, renamed.
void ReplaceBesideByHand(benchmark::State& state) {
    const Bed bed(0);
    const std::string text(static_cast<std::size_t>(state.range(0)) << 10, 's');
    const std::string by_hand = bed.root + "/theirs.sav";
    const std::string beside = by_hand + ".new";
    const auto ours = [&] {
        if (!fs::save_text_file(text, "ours.sav", FFSOpenFlags::REPLACE)) state.SkipWithError("not saved");
    };
    const auto theirs = [&] {
        const int file = ::open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        const bool is_written = ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
        if (!is_written || ::fdatasync(file) != 0) state.SkipWithError("not written");
        ::close(file);
        if (::rename(beside.c_str(), by_hand.c_str()) != 0) state.SkipWithError("not renamed");
    };
    ours();
    theirs();
    paired::compare_prepared(
        state, 1, 200, [] {}, ours, theirs);
}
BENCHMARK(ReplaceBesideByHand)->ArgName("KiB")->Arg(4)->Arg(256)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
