// Parsing ten mebibytes of configuration text.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include <engine/kernel/parser.h>

namespace {

constexpr const char* keywords =
    "!Permit(s,i,i)\r\n!BrenixLogLevel(s)\r\n!BrenixLogCategoryLevel(s,s)\r\n!BrenixLogMessageSource(i)\r\n!Place(v)";

std::string make_text(std::size_t size) {
    std::string text = "!const(int, ON, 1)\n!set(where, out)\n";
    for (int i = 0; text.size() < size; ++i) {
        text += "!Permit(V" + std::to_string(i % 100) + "?, 1, 0)\n";
        text +=
            "BrenixLogCategoryLevel(\"Category " + std::to_string(i % 1000) + "\", Verbose5) // as people write it\n";
        if (i % 16 == 0) text += "/* a line of words that says why the next line is here */\nPlace((1.5, -2, 3e2))\n";
        if (i % 32 == 0) text += "BrenixLogMessageSource(ON)\nBrenixLogLevel(\"$where\\\\x\")\n";
    }
    return text;
}

void ParseConfiguration(benchmark::State& state) {
    const std::string text = make_text(10u << 20);
    for (auto _ : state) {
        kernel::CConfigText* const parsed =
            kernel::CConfigText::Parse(keywords, {.text = text.data(), .length = text.size()});
        if (parsed == nullptr || parsed->CommandCount() < 1000 || parsed->ErrorCount() != 0)
            state.SkipWithError("not parsed");
        if (parsed != nullptr) parsed->Release();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(ParseConfiguration)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
