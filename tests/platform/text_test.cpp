#include "engine/platform/text.h"

#include <gmock/gmock.h>

#include <string>

namespace platform {
namespace {

TEST(Text, WidensAsciiAndWritesNoTerminator) {
    const std::string text("path/with\0zero and~tilde", 24);
    std::wstring wide(text.size() + 1, L'#');
    ASSERT_EQ(narrow_to_wide(text.data(), text.size(), wide.data()), text.size());
    for (std::size_t i = 0; i < text.size(); ++i) EXPECT_EQ(wide[i], static_cast<wchar_t>(text[i])) << i;
    EXPECT_EQ(wide.back(), L'#');
    EXPECT_EQ(narrow_to_wide("", 0, wide.data()), 0u);
}

}  // namespace
}  // namespace platform
