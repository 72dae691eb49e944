// Log messages: held back by their level; written to a callback, beside spdlog's synchronous logger that formats its
// default pattern into memory; and written to the log file, beside the bare system call. And an assertion that holds.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include <engine/filesystem/log.h>
#include <engine/filesystem/startup.h>

#ifdef HAVE_SPDLOG
#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace {

using Log::ELevel;
using Log::Settings;

bool is_emitted(const char* category, ELevel::TYPE level) {
    return Settings::Instance().GetCategoryLevel(category) >= level;
}

void fill_categories(int count) {
    Settings::Instance() = Settings();
    const char* const names[] = {"Renderer",  "Physics",   "Network", "Audio",
                                 "Scripting", "Streaming", "Input",   "Editor"};
    for (int i = 0; i < count; ++i) Settings::Instance().SetCategoryLevel(names[i], ELevel::ERRR);
}

void BelowLevel(benchmark::State& state) {
    fill_categories(static_cast<int>(state.range(0)));
    const char* category = "FileSystem";
    for (auto _ : state) {
        benchmark::DoNotOptimize(category);
        if (is_emitted(category, ELevel::DEBG)) state.SkipWithError("the level does not hold the message back");
    }
    fill_categories(0);
}
BENCHMARK(BelowLevel)->Arg(0)->Arg(8)->ArgName("categories");

constexpr std::uint32_t info_id = 0x494E464F;  // "INFO"

std::size_t received = 0;
char memory[4096];

void Emitted(benchmark::State& state) {
    _CLFilterSetMode(CLFilterMode::ALL_CONSOLE);
    LogSetPrintCallback([](ELevel::TYPE, const char*, const char* text) {
        const std::size_t length = std::strlen(text);
        std::memcpy(memory, text, length);
        received += length;
    });
    int number = 0;
    for (auto _ : state) {
        if (!is_emitted("FileSystem", ELevel::INFO)) break;
        _CLog(ELevel::INFO, "FileSystem", __FILE__, __LINE__, _CLFilter(info_id), CLLineMode::NEW_LINE,
              "Adding source '%s' of type %d.\n", "data/textures", ++number);
    }
    LogSetPrintCallback(nullptr);
    _CLFilterSetMode(CLFilterMode::NORMAL);
    if (received == 0) state.SkipWithError("nothing was written");
}
BENCHMARK(Emitted);

#ifdef HAVE_SPDLOG
class MemorySink final : public spdlog::sinks::base_sink<std::mutex> {
    void sink_it_(const spdlog::details::log_msg& message) override {
        spdlog::memory_buf_t formatted;
        formatter_->format(message, formatted);
        std::memcpy(memory, formatted.data(), formatted.size());
        received += formatted.size();
    }
    void flush_() override {}
};

void EmittedBySpdlog(benchmark::State& state) {
    spdlog::logger logger("FileSystem", std::make_shared<MemorySink>());
    int number = 0;
    for (auto _ : state) logger.info("Adding source '{}' of type {}.", "data/textures", ++number);
}
BENCHMARK(EmittedBySpdlog);
#endif

// One line of 80 characters, header and line end included.
constexpr const char* line_text = "0123456789012345678901234567890123456\n";

std::filesystem::path make_root() {
    std::string name = (std::filesystem::temp_directory_path() / "log_bench_XXXXXX").string();
    return mkdtemp(name.data()) == nullptr ? std::filesystem::path() : std::filesystem::path(name);
}

std::filesystem::path root;

void LineToFile(benchmark::State& state) {
    if (CrashGetLogFileName() == nullptr) return state.SkipWithError("there is no log file");
    for (auto _ : state) {
        _CLog(ELevel::INFO, "FileSystem", nullptr, 0, CLFilterAction::LOGFILE, CLLineMode::NEW_LINE, "%s", line_text);
    }
}
BENCHMARK(LineToFile)->Iterations(300000);

/// In the same process, beside the file system's read thread: with a second thread the system itself takes longer.
void RawWrite(benchmark::State& state) {
    const int file = open((root / "raw").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const std::string line(80, 'x');
    for (auto _ : state) {
        if (write(file, line.data(), line.size()) != 80) return state.SkipWithError("the disk refuses");
    }
    close(file);
}
BENCHMARK(RawWrite)->Iterations(300000);

void PassingAssertion(benchmark::State& state) {
    int number = 1;
    for (auto _ : state) {
        benchmark::DoNotOptimize(number);
        SMART_ASSERT(number > 0, "number %d", number);
    }
}
BENCHMARK(PassingAssertion);

void NoAssertion(benchmark::State& state) {
    int number = 1;
    for (auto _ : state) benchmark::DoNotOptimize(number);
}
BENCHMARK(NoAssertion);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    root = make_root();
    if (!fs::init(root.c_str(), FFSAddSourceFlags::RECURSIVE, "", false, false, nullptr)) return 1;
    CrashInit();
    benchmark::RunSpecifiedBenchmarks();
    fs::shutdown();
    CrashClose();
    std::filesystem::remove_all(root);
    return 0;
}
