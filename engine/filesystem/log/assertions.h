#pragma once

#include <engine/filesystem/log/assert.h>

namespace logging {

/// Installs what handles failed assertions when the host has set nothing: the dialog, from the start-up room.
void set_default_assert_handler(smart_assert_handler handler);

}  // namespace logging
