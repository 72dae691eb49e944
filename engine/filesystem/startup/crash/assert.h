#pragma once

#include <engine/filesystem/log/assert.h>

namespace crash {

/// The handler of failed assertions while the host has set none.
EAssertionResult::TYPE ask_about_assertion(const smart_assert_data& data);

}  // namespace crash
