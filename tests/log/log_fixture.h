#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/filesystem/log/sinks.h"

/// Starts each test from an untouched log core without a crash start-up, and records what the callbacks receive.
class LogTest : public testing::Test {
protected:
    struct Line {
        Log::ELevel::TYPE level;
        std::string category;
        std::string text;
    };

    LogTest() {
        reset();
        // An earlier test may have started the log.
        run_ = logging::state.run.exchange(nullptr);
        phase_ = logging::state.phase.exchange(logging::StartUp::NOT_STARTED);
        LogSetPrintCallback([](Log::ELevel::TYPE level, const char* category, const char* text) {
            console_lines.push_back({level, category, text});
        });
        CrashSetPrintCallback([](Log::ELevel::TYPE level, const char* category, const char* text) {
            file_lines.push_back({level, category, text});
        });
    }
    ~LogTest() override {
        LogSetPrintCallback(nullptr);
        CrashSetPrintCallback(nullptr);
        logging::state.phase = phase_;
        logging::state.run = run_;
        reset();
    }

    /// Writes to the console callback; returns what it received.
    static std::string write(const char* category, const std::string& text,
                             CLLineMode::ENUM mode = CLLineMode::NEW_LINE,
                             Log::ELevel::TYPE level = Log::ELevel::INFO) {
        _CLog(level, category, nullptr, 0, CLFilterAction::CONSOLE, mode, text);
        return console_lines.back().text;
    }
    /// The text with each "{hh:mm:ss.mmm} " taken out, so that it can be compared.
    static std::string without_time(std::string text) {
        for (std::size_t at = text.find('{'); at != std::string::npos; at = text.find('{', at)) text.erase(at, 15);
        return text;
    }

    static inline std::vector<Line> console_lines;
    static inline std::vector<Line> file_lines;

private:
    static void reset() {
        logging::store_line_state({});
        logging::state.filter_mode = CLFilterMode::NORMAL;
        logging::state.verbose = false;
        _CLFilterClear();
        Log::Settings::Instance() = Log::Settings();
        console_lines.clear();
        file_lines.clear();
    }

    void (*run_)() = nullptr;
    logging::StartUp phase_{};
};
