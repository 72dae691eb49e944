#pragma once

// Preparing the log for a process, and what is kept of a process that fails: the log file, dumps, assertion switches.

#include <cstdint>

#include <engine/filesystem/api.h>
#include <engine/filesystem/log.h>
#include <engine/kernel/ztl.h>

/// Prepares the log: reads the command line's switches and the configuration file, and opens the log file as soon as the
/// file system is there. The first message for the log file does the same by itself.
///
/// console  whether console lines go to standard output; looked at by the first call only, and the first message counts
///          as one: fs::init logs. So call it with true before fs::init too, or use CrashInitOutToConsole.
/// When     right after fs::init and before packs are mounted, since the log file is created in the first source.
/// Switches -silent (no log file), -verbose (more levels, more in the file), logcfg=FILE, logfile=FILE.
/// Failure  nothing is reported: without a file, messages reach the console and the callbacks.
/// Threads  any.
ENGINE_FS_API void CrashInit(bool console);
ENGINE_FS_API void CrashInit();
/// Closes the log file, and removes it when it is empty. Afterwards file messages reach the crash print callback alone,
/// and CrashInit does nothing.
ENGINE_FS_API void CrashClose();

/// For tools that check a logging configuration: its keyword table (see engine/kernel/parser.h), and the level that a name
/// in it stands for, NONE for one that is none.
ENGINE_FS_API const char* CrashConfigKeywords();
ENGINE_FS_API Log::ELevel::TYPE CrashLevelFromName(const char* name);

/// Console lines go to standard output from now on, or nowhere.
ENGINE_FS_API void CrashInitOutToConsole();
ENGINE_FS_API void CrashDisableOutToConsole();
/// The system's handle of the console; null when there is none.
ENGINE_FS_API void* CrashGetConsoleHandle();

/// How many errors and warnings there were so far, silenced ones included.
ENGINE_FS_API void CrashGetStats(std::uint32_t& errors, std::uint32_t& warnings);

/// Whether fatal messages and failed assertions may show a box; true at first.
ENGINE_FS_API void CrashShowMessageBox(bool on);
ENGINE_FS_API bool CrashCanShowMessageBox();
/// Whether a failed assertion is reported with its call stack; true at first.
ENGINE_FS_API void CrashShowCallstackInAsserts(bool on);
ENGINE_FS_API bool CrashCanShowCallstackInAsserts();

/// The log file's name, "" when it has none; null while there is no log file.
ENGINE_FS_API const char* CrashGetLogFileName();

/// A name for a dump of now, below "out/logs/" and stamped like the log file.
ENGINE_FS_API fs::string CreateDumpFilename();
/// Writes an account of the running process: a minidump on Windows, a readable report on Linux.
///
/// native_path  where to, a file that does not exist yet; null: under CreateDumpFilename's name beside the log file.
/// Returns      false when it cannot be written.
ENGINE_FS_API bool GenerateDump(const char* native_path = nullptr);
/// The same with all that the system can tell: every byte of memory on Windows, every mapping on Linux.
ENGINE_FS_API bool WriteFullDump(const char* native_path = nullptr);

/// Whether a crash of this process leaves a dump beside the log file (call it after CrashInit); off at first. Whatever
/// handled crashes before still does so afterwards, and the process ends as it would have. A stack that is used up is
/// reported on the calling thread and on those of mt::CThread. False when the system refuses.
ENGINE_FS_API bool CrashCatchExceptions(bool on);
