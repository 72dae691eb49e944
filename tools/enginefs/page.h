#pragma once

#include <string>

#include "contents.h"

/// A page that shows what packs and directories hold: a map of the bytes, which needs script, and tables, which do not.
/// It is one text that reaches for nothing else, and whose names cannot act.
std::string page_of(Contents& contents, const std::string& title, bool has_record, bool exact);
