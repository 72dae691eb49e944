// Log messages: held back by their level, and written to a callback, beside spdlog's synchronous logger that formats
// its default pattern into memory.
#include <benchmark/benchmark.h>

#include <cstring>

#include <engine/filesystem/log.h>

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
        _CLog(ELevel::INFO, "FileSystem", __FILE__, __LINE__, _CLFilter('INFO'), CLLineMode::NEW_LINE,
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

}  // namespace

BENCHMARK_MAIN();
