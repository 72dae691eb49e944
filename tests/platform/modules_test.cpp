#include "engine/platform/modules.h"

#include <gmock/gmock.h>

#include <string>

namespace platform {
namespace {

// Tests run in a folder of their own, so only the search beside the executable can find it.
TEST(Modules, LoadsACompanionThatLiesBesideTheExecutable) {
    Module* const module = load_module("test_companion");
    ASSERT_NE(module, nullptr);
    const auto answer = reinterpret_cast<int (*)()>(find_symbol(module, "companion_answer"));
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer(), 42);
    EXPECT_EQ(find_symbol(module, "companion_question"), nullptr);
    unload_module(module);
}

TEST(Modules, AnswersNullForWhatIsNotThere) {
    EXPECT_EQ(load_module("no_such_companion"), nullptr);
    EXPECT_EQ(load_module(std::string(5000, 'x').c_str()), nullptr);
}

}  // namespace
}  // namespace platform
