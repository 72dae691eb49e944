#include "tests/support/child_process.h"

#include <algorithm>
#include <cstdlib>
#include <thread>

#include "engine/platform/process.h"
#include "tests/support/temp_directory.h"

#ifdef _WIN32
extern "C" __declspec(dllimport) unsigned __stdcall SetErrorMode(unsigned mode);
#endif

namespace {

constexpr const char* root_variable = "ENGINE_TEST_CHILD_ROOT";

/// Runs the program with these variables in its environment.
int run(const std::string& program, const std::string& rest, const std::map<std::string, std::string>& variables) {
    std::string command;
#ifdef _WIN32
    // A child that crashes starts no debugger, which would keep the child's output open. Children take the mode over.
    constexpr unsigned no_box_of_a_fault = 2;
    SetErrorMode(no_box_of_a_fault);
    for (const auto& [name, value] : variables) command += "set " + name + "=" + value + "&&";
    command += "\"" + std::filesystem::path(program).make_preferred().string() + "\"" + rest;
    return std::system(command.c_str());
#else
    for (const auto& [name, value] : variables) command += name + "=\"" + value + "\" ";
    const char* const emulator = std::getenv("ENGINE_TEST_EMULATOR");  // of a foreign processor
    if (emulator != nullptr) command += "\"" + std::string(emulator) + "\" ";
    command += "\"" + program + "\"" + rest;
    const int status = std::system(command.c_str());
    return (status & 0x7F) == 0 ? status >> 8 & 0xFF : 128 + (status & 0x7F);
#endif
}

}  // namespace

std::vector<ChildResult> run_children(std::size_t count, const std::string& name, const std::filesystem::path& root,
                                      const std::string& arguments) {
    const std::filesystem::path absolute = std::filesystem::absolute(root);
    // A child that crashes leaves its own temporary folder behind: inside ours.
    const std::string ours = absolute.parent_path().string();
    const std::map<std::string, std::string> variables = {
        {root_variable, absolute.generic_string()}, {"TMPDIR", ours}, {"TMP", ours}};
    std::vector<ChildResult> results(count);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < count; ++i) {
        threads.emplace_back([&, i] {
            const std::string output = absolute.generic_string() + "." + std::to_string(i) + ".output";
            const std::string rest = " --gtest_filter=" + name + " --gtest_also_run_disabled_tests --gtest_brief=1 " +
                                     arguments + " > \"" + output + "\" 2>&1";
            // A busy system may fail to start it, which leaves -1 and not a word.
            for (int attempt = 0; attempt < 3 && results[i].exit_code == -1 && results[i].output.empty(); ++attempt) {
                results[i].exit_code = run(platform::executable_path(), rest, variables);
                results[i].output = read_file(output);
            }
            std::erase(results[i].output, '\r');
        });
    }
    for (std::thread& thread : threads) thread.join();
    return results;
}

ChildResult run_child(const std::string& name, const std::string& arguments, const FileTree& before) {
    const TempDirectory folder;
    const std::string root = folder / "root";
    std::filesystem::create_directory(root);
    for (const auto& [file, bytes] : before) folder.write("root/" + file, bytes);
    ChildResult result = run_children(1, name, root, arguments).front();
    for (const auto& item : std::filesystem::recursive_directory_iterator(root)) {
        const std::string file = item.path().lexically_relative(root).generic_string();
        if (item.is_regular_file()) result.files[file] = read_file(item.path().string());
    }
    return result;
}

std::string child_root() {
    const char* const root = std::getenv(root_variable);
    return root == nullptr ? "" : root;
}
