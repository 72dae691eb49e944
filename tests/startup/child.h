#pragma once

#include <string>

#include <engine/filesystem/log.h>
#include <engine/filesystem/startup.h>

#include "tests/support/child_process.h"

/// Installs a handler of faults as a host may have one: it says "the host's handler" and ends the process with status 7,
/// or, when it chains, calls what was there before it. A chain without an end is cut with status 99.
void install_host_handler(bool chains);

// What children of these tests share: the file system over their root, and something to say.

inline bool start_file_system() {
    return fs::init(child_root().c_str(), FFSAddSourceFlags::RECURSIVE, "", false, false, nullptr);
}

inline void say(const std::string& text, CLFilterAction::ENUM where = CLFilterAction::LOGFILE) {
    _CLog(Log::ELevel::INFO, "Test", nullptr, 0, where, CLLineMode::NEW_LINE, "%s\n", text.c_str());
}
