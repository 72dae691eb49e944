#pragma once

// Streams: typed reading and writing over open files, memory, gzip members and native files.

#include <engine/filesystem/streams/bfile.h>
#include <engine/filesystem/streams/cached.h>
#include <engine/filesystem/streams/chunk.h>
#include <engine/filesystem/streams/file.h>
#include <engine/filesystem/streams/ifile.h>
#include <engine/filesystem/streams/memory.h>
#include <engine/filesystem/streams/zipped_buffer.h>
