#pragma once

// The kinds of source.

#include <engine/filesystem/sources/memory_archive.h>
#include <engine/filesystem/sources/pack.h>
