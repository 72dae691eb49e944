#pragma once

// Where files come from: the kinds of source that the library brings along.

#include <engine/filesystem/sources/directory.h>
#include <engine/filesystem/sources/fallback.h>
#include <engine/filesystem/sources/memory_archive.h>
#include <engine/filesystem/sources/pack.h>
