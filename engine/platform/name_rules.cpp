#include "engine/platform/name_rules.h"

#include "engine/platform/files.h"

namespace platform {

bool is_valid_name(const char* name, std::size_t length) { return NameRules<char>::allow({name, length}); }

}  // namespace platform
