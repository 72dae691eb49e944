#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <engine/filesystem.h>

#include "mount/table.h"

/// A pack that is to be mounted, as it records its entries. Listed before: a mounted pack is in use.
struct ListedPack {
    std::string path;  // full
    ztl::vector<SFsPackEntry> entries;
};

/// Lists the packs among the sources of a command line, in their order. False, with a word on standard error, when one
/// cannot be read.
bool list_packs(const std::vector<std::string>& sources, std::vector<ListedPack>& out);

/// What is known of a name already; nothing for one that is to be looked at.
using Known = std::function<std::optional<Table::Item>(const std::string& name)>;

/// What the mounted sources show: every file, from the source that wins, and the directories without any.
std::vector<Table::Item> gather(const std::vector<ListedPack>& packs, const Known& known = nullptr);
