#include "tests/support/child_process.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "engine/platform/process.h"

#ifdef _WIN32
extern "C" __declspec(dllimport) unsigned __stdcall SetErrorMode(unsigned mode);
#endif

namespace {

constexpr const char* root_variable = "ENGINE_TEST_CHILD_ROOT";

void set_variable(const char* name, const std::string& value) {
#ifdef _WIN32
    _putenv_s(name, value.c_str());
#else
    setenv(name, value.c_str(), 1);
#endif
}

int run(const std::string& program, const std::string& rest) {
#ifdef _WIN32
    // A child that crashes starts no debugger, which would keep the child's output open. Children take the mode over.
    constexpr unsigned no_box_of_a_fault = 2;
    SetErrorMode(no_box_of_a_fault);
    return std::system(
        ("\"\"" + std::filesystem::path(program).make_preferred().string() + "\"" + rest + "\"").c_str());
#else
    const char* const emulator = std::getenv("ENGINE_TEST_EMULATOR");  // of a foreign processor
    const std::string start = emulator == nullptr ? "" : "\"" + std::string(emulator) + "\" ";
    const int status = std::system((start + "\"" + program + "\"" + rest).c_str());
    return (status & 0x7F) == 0 ? status >> 8 & 0xFF : 128 + (status & 0x7F);
#endif
}

}  // namespace

std::vector<ChildResult> run_children(std::size_t count, const std::string& name, const std::filesystem::path& root,
                                      const std::string& arguments) {
    const std::string absolute = std::filesystem::absolute(root).generic_string();
    set_variable(root_variable, absolute);
    // A child that crashes leaves its own temporary folder behind: inside ours.
    set_variable("TMPDIR", std::filesystem::current_path().string());
    set_variable("TMP", std::filesystem::current_path().string());
    std::vector<ChildResult> results(count);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < count; ++i) {
        threads.emplace_back([&, i] {
            const std::string output = absolute + "." + std::to_string(i) + ".output";
            results[i].exit_code = run(platform::executable_path(),
                                       " --gtest_filter=" + name + " --gtest_also_run_disabled_tests --gtest_brief=1 " +
                                           arguments + " > \"" + output + "\" 2>&1");
            std::ostringstream text;
            text << std::ifstream(output, std::ios::binary).rdbuf();
            results[i].output = text.str();
        });
    }
    for (std::thread& thread : threads) thread.join();
    set_variable(root_variable, "");
    return results;
}

ChildResult run_child(const std::string& name, const std::filesystem::path& root, const std::string& arguments) {
    return run_children(1, name, root, arguments).front();
}

std::string child_root() {
    const char* const root = std::getenv(root_variable);
    return root == nullptr ? "" : root;
}
