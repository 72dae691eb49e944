#pragma once

// The kinds of source: directories, the disk itself, packs, archives in memory.

#include <engine/filesystem/sources/directory.h>
#include <engine/filesystem/sources/fallback.h>
#include <engine/filesystem/sources/memory_archive.h>
#include <engine/filesystem/sources/pack.h>
