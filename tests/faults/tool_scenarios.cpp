#include <fcntl.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>

#if defined(_WIN32)
#include <io.h>
#else
#include <unistd.h>
#endif

#include "tests/faults/scenarios.h"
#include "tests/support/temp_directory.h"
#include "tools/enginefs/program.h"
#include "tools/enginefs/report.h"

namespace test {

namespace {

namespace disk = std::filesystem;

// The tool is a program of the standard library; on Windows that ends the process when a lock of its own gets no memory.
#if defined(_WIN32)
constexpr bool tool_allocations_can_fail = false;
#else
constexpr bool tool_allocations_can_fail = true;
#endif

struct Row {
    const char* name;
    std::vector<std::string> words;  // "@" stands for the stage's folder
    bool output_varies = false;      // it prints when something was written, or how long it took
    bool lists_directories = false;
    bool moves = false;
};

const std::vector<Row>& rows() {
    static const std::vector<Row> all = {
        {"enginefs sources", {"sources"}},
        {"enginefs ls", {"--add", "@/base.pak", "ls"}},
        {"enginefs find", {"find", "o"}},
        {"enginefs stat", {"stat", "save.txt"}},
        {"enginefs which", {"which", "save.txt"}},
        {"enginefs cat", {"--add", "@/base.pak", "cat", "packed.txt"}},
        {"enginefs crc", {"--add", "@/base.pak", "crc", "packed.txt"}},
        {"enginefs duplicates", {"duplicates"}},
        {"enginefs load", {"--add", "@/base.pak", "load"}, true},
        {"enginefs list", {"list", "@/base.pak"}},
        {"enginefs verify", {"verify", "@/base.pak"}},
        {"enginefs pack", {"pack", "@/more/old.pak", "@/root"}, true, true},
        {"enginefs pack in parts", {"pack", "--split-size", "150", "@/more/old.pak", "@/root"}, true, true},
        {"enginefs diff", {"diff", "@/base.pak", "@/root"}, false, true},
        {"enginefs patch", {"patch", "@/base.pak", "@/root", "@/more/old.pak"}, true, true},
        {"enginefs pack zstd", {"pack", "--method", "zstd", "--level", "9", "@/more/old.pak", "@/root"}, true, true},
        {"enginefs unpack", {"unpack", "@/base.pak", "@/out"}},
        {"enginefs cp", {"cp", "levels/one.txt", "save.txt"}},
        {"enginefs gzip", {"gzip", "save.txt", "levels/two.txt"}},
        {"enginefs gunzip", {"gunzip", "levels/one.gz", "save.txt"}},
        {"enginefs mv", {"mv", "save.txt", "levels/moved.txt"}, false, false, true},
        {"enginefs rm", {"rm", "save.txt"}, false, false, true},
        {"enginefs mkdir", {"mkdir", "new/place"}},
        {"enginefs touch", {"touch", "--time", "2020-02-03", "save.txt"}},
        {"enginefs report", {"report", "--exact", "--pack", "@/base.pak", "--pack", "@/more/old.pak", "@/page.html"}},
        {"enginefs container import", {"container", "import", "new.mc", "@/blobs"}, false, false, true},
        {"enginefs container export", {"container", "export", "blobs.mc", "@/out"}},
        {"enginefs cache build", {"--cache", "@/cache", "--add", "@/more", "cache", "build"}, true, true},
    };
    return all;
}

/// Standard output and standard error go to a file each, for as long as it lives.
class Capture {
public:
    Capture() {
        for (std::size_t i = 0; i < streams.size(); ++i) {
            std::fflush(streams[i]);
            before_[i] = dup(static_cast<int>(i) + 1);
            std::remove(names[i]);  // emptying a file waits for the disk
            const int file = ::open(names[i], O_WRONLY | O_CREAT | O_TRUNC, 0600);
            dup2(file, static_cast<int>(i) + 1);
            close(file);
        }
    }
    ~Capture() {
        for (std::size_t i = 0; i < streams.size(); ++i) {
            std::fflush(streams[i]);
            dup2(before_[i], static_cast<int>(i) + 1);
            close(before_[i]);
        }
    }
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    static constexpr std::array<const char*, 2> names = {"tool.out", "tool.err"};

private:
    const std::array<FILE*, 2> streams = {stdout, stderr};
    std::array<int, 2> before_{};
};

/// One command, and what it prints when nothing fails.
class Command {
public:
    Command(const Row& row, const Stage& stage) : row_(row) {
        std::vector<std::string> words = {"enginefs", "--root", stage.root};
        for (std::string word : row.words) {
            if (word.starts_with('@')) word = stage / word.substr(2).c_str();
            words.push_back(std::move(word));
        }
        std::vector<const char*> arguments;
        for (const std::string& word : words) arguments.push_back(word.c_str());
        if (program_.parse(static_cast<int>(arguments.size()), arguments.data())) std::abort();
    }

    bool run() const {
        const Capture capture;
        return program_.run() == exit_ok;
    }

    /// The first answer is of the run in which nothing fails.
    std::string check(bool answer) {
        if (!answer || row_.output_varies) return "";
        const std::string printed = read_file(Capture::names[0]);
        if (!output_) output_ = printed;
        return printed == *output_ ? "" : "it printed " + printed + "and not " + *output_;
    }

private:
    const Row& row_;
    Program program_;
    std::optional<std::string> output_;
};

/// The bytes of a container with two blobs, which is made once.
const std::string& container_bytes(const Stage& stage) {
    static const std::string bytes = [&] {
        CFileHashMultiContainer all;
        const bool is_made = fs::init({.root = stage.root.c_str(), .use_fallback = false}) && all.Create("blobs.mc") &&
                             all.Put("one", 1, "first", 5, false) && all.Put("two", 2, "second", 6, true) && all.Save();
        all.Close();
        fs::shutdown();
        if (!is_made) std::abort();
        return read_file(stage / "root/blobs.mc");
    }();
    return bytes;
}

/// What commands need beside the stage's tree, and times that are the same in each run.
void furnish(const Stage& stage) {
    using namespace std::chrono;
    static constexpr unsigned char member_of_one[] = {31, 139, 8, 0,   0,   0,   0,   0, 2, 3, 203, 207,
                                                      75, 5,   0, 241, 134, 108, 122, 3, 0, 0, 0};
    disk::copy_file(stage.pack, stage / "more/old.pak");
    write_file(stage / "root/levels/one.gz", {reinterpret_cast<const char*>(member_of_one), sizeof member_of_one});
    write_file(stage / "root/blobs.mc", container_bytes(stage));
    for (const char* const name : {"blobs/one/0x00000001", "blobs/two/0x00000002.txt"}) {
        disk::create_directories(disk::path(stage / name).parent_path());
        write_file(stage / name, name);
    }
    const auto time = file_clock::from_sys(sys_seconds(sys_days(2020y / 1 / 2)));
    for (const auto& item : disk::recursive_directory_iterator(disk::path(stage.root).parent_path()))
        if (item.is_regular_file()) disk::last_write_time(item.path(), time);
}

}  // namespace

std::string tool_messages() { return read_file(Capture::names[1]); }

std::vector<Scenario> tool_scenarios() {
    std::vector<Scenario> all;
    for (const Row& row : rows()) {
        const auto command = std::make_shared<std::unique_ptr<Command>>();
        const auto prepare = [=, &row](Stage& stage) {
            furnish(stage);
            if (*command == nullptr) *command = std::make_unique<Command>(row, stage);
        };
        // Done, but for names of a directory that cannot be listed, it ends with 1 and cannot be done again.
        const bool repeatable = !row.moves;
        all.push_back({.name = row.name,
                       .act = [=](Stage&) { return (*command)->run(); },
                       .prepare = prepare,
                       .check = [=](Stage&, bool answer) { return (*command)->check(answer); },
                       .repeatable = repeatable,
                       .by_message = true,
                       .allocations = tool_allocations_can_fail && !row.lists_directories});
    }
    return all;
}

}  // namespace test
