#pragma once

#include <chrono>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>

#include "tests/platform/disk.h"
#include "tests/support/child_process.h"

/// A process that has nothing to do with ours and opens "file" of the current folder as it is told. They talk by files:
/// each question and each answer is one, which appears whole.
class OtherProcess {
public:
    OtherProcess() {
        std::filesystem::create_directory("talk");
        process_ = std::thread([] { run_children(1, "OtherProcess.DISABLED_Serve", "."); });
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;
    ~OtherProcess() { end(); }

    /// Closes what it has open, and opens the file.
    platform::Failure open(platform::Access access, platform::Disposition disposition, platform::Sharing sharing) {
        std::ostringstream question;
        question << static_cast<int>(access) << ' ' << static_cast<int>(disposition) << ' '
                 << static_cast<int>(sharing);
        tell("question", number_, question.str());
        return static_cast<platform::Failure>(std::atoi(hear("answer", number_++).c_str()));
    }
    /// Ends it with its file open.
    void end() {
        if (!process_.joinable()) return;
        tell("question", number_, "end");
        process_.join();
        std::filesystem::remove_all("talk");
    }

    static void serve() {
        platform::File file;
        for (int number = 0;; ++number) {
            std::istringstream question(hear("question", number));
            int access = 0, disposition = 0, sharing = 0;
            if (!(question >> access >> disposition >> sharing)) std::_Exit(0);
            file.close();
            file = platform::File::open("file", {.access = static_cast<platform::Access>(access),
                                                 .disposition = static_cast<platform::Disposition>(disposition),
                                                 .sharing = static_cast<platform::Sharing>(sharing)});
            const auto answer = file.valid() ? platform::Failure::NONE : platform::last_error().failure;
            tell("answer", number, std::to_string(static_cast<int>(answer)));
        }
    }

private:
    static std::string name(const char* kind, int number) {
        return std::string("talk/") + kind + std::to_string(number);
    }
    static void tell(const char* kind, int number, const std::string& text) {
        disk::put(name(kind, number) + ".part", text);
        std::filesystem::rename(name(kind, number) + ".part", name(kind, number));
    }
    static std::string hear(const char* kind, int number) {
        for (int i = 0; i < 30'000 && !std::filesystem::exists(name(kind, number)); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        return disk::get(name(kind, number));
    }

    std::thread process_;
    int number_ = 0;
};
