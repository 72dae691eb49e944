#pragma once

#include <string>

#include <engine/filesystem/log.h>
#include <engine/filesystem/startup.h>

#include "tests/support/child_process.h"

// What children of these tests share: the file system over their root, and something to say.

inline bool start_file_system() {
    return fs::init(child_root().c_str(), FFSAddSourceFlags::RECURSIVE, "", false, false, nullptr);
}

inline void say(const std::string& text, CLFilterAction::ENUM where = CLFilterAction::LOGFILE) {
    _CLog(Log::ELevel::INFO, "Test", nullptr, 0, where, CLLineMode::NEW_LINE, "%s\n", text.c_str());
}
