#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include <engine/kernel/parser.h>

#include "engine/kernel/parser/arena.h"
#include "engine/kernel/parser/names.h"

namespace kernel::config {

struct Keyword {
    const char* name = "";  // in the arena
    std::vector<EConfigValue::TYPE> types;
};

/// The keywords of a configuration, from lines such as "!Permit(s,i,i)". What is no type letter counts as a string.
class KeywordTable {
public:
    KeywordTable(std::string_view text, TextArena& arena);
    const Keyword* find(std::string_view name) const;

private:
    NameMap<Keyword> keywords_;
};

}  // namespace kernel::config
