#include <fcntl.h>

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

#include "tests/faults/stage.h"
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
    // Done, but for names of a directory that cannot be listed, it ends with 1 and cannot be done again.
    bool moves = false;
};

const Row rows[] = {
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

/// Sends standard output or standard error to a file as long as it lives.
class Redirected {
public:
    Redirected(FILE* stream, int number, const char* name) : stream_(stream), number_(number), before_(dup(number)) {
        std::fflush(stream);
        std::remove(name);  // emptying a file waits for the disk
        const int file = ::open(name, O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(file, number);
        close(file);
    }
    ~Redirected() {
        std::fflush(stream_);
        dup2(before_, number_);
        close(before_);
    }
    Redirected(const Redirected&) = delete;
    Redirected& operator=(const Redirected&) = delete;

private:
    FILE* const stream_;
    const int number_, before_;
};

std::unique_ptr<Program> program_for(const Stage& stage, std::vector<std::string> words) {
    std::vector<const char*> arguments = {"enginefs", "--root", stage.root.c_str()};
    for (std::string& word : words) {
        if (word.starts_with('@')) word = stage / word.substr(2).c_str();
        arguments.push_back(word.c_str());
    }
    auto program = std::make_unique<Program>();
    if (program->parse(static_cast<int>(arguments.size()), arguments.data())) std::abort();
    return program;
}

bool run(const Program& program) {
    const Redirected out(stdout, 1, "tool.out"), error(stderr, 2, "tool.err");
    return program.run() == exit_ok;
}

/// What commands need beside the stage's tree, which the tool itself makes once, and times that are the same in each run.
void furnish(const Stage& stage) {
    using namespace std::chrono;
    static const Tree furniture = [&] {
        stage.write({{"blobs/one/0x00000001", "first"}, {"blobs/two/0x00000002.txt", "second"}});
        for (const std::vector<std::string>& words :
             {std::vector<std::string>{"gzip", "levels/one.txt", "levels/one.gz"},
              {"container", "import", "blobs.mc", "@/blobs"},
              {"container", "put", "blobs.mc", "three", "3", "levels/two.txt", "--deflate"}})
            if (!run(*program_for(stage, words))) std::abort();
        Tree made = stage.disk();
        made["more/old.pak"] = made["base.pak"];
        std::erase_if(made, [](const auto& file) { return file.first.ends_with('/'); });
        return made;
    }();
    stage.write(furniture);
    const auto time = file_clock::from_sys(sys_seconds(sys_days(2020y / 1 / 2)));
    for (const auto& item : disk::recursive_directory_iterator(disk::path(stage.root).parent_path()))
        if (item.is_regular_file()) disk::last_write_time(item.path(), time);
}

Scenario scenario_of(const Row& row) {
    const auto program = std::make_shared<std::unique_ptr<Program>>();
    const auto usual = std::make_shared<std::optional<std::string>>();  // what the run in which nothing fails prints
    const auto prepare = [=, &row](Stage& stage) {
        furnish(stage);
        if (*program == nullptr) *program = program_for(stage, row.words);
    };
    const auto check = [=, &row](Stage&, bool answer) -> std::string {
        if (!answer || row.output_varies) return "";
        const std::string printed = read_file("tool.out");
        if (!*usual) *usual = printed;
        return expect("what it printed", printed, **usual);
    };
    return {.name = row.name,
            .act = [=](Stage&) { return run(**program); },
            .prepare = prepare,
            .check = check,
            .repeatable = !row.moves,
            .by_message = true,
            .allocations = tool_allocations_can_fail && !row.lists_directories};
}

}  // namespace

std::string tool_messages() { return read_file("tool.err"); }

std::vector<Scenario> tool_scenarios() {
    std::vector<Scenario> all;
    for (const Row& row : rows) all.push_back(scenario_of(row));
    return all;
}

}  // namespace test
