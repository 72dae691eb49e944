#pragma once

// The whole exported interface of the engine's file system.
//
// Failures  no function throws: each gives its failure result and leaves the reason in fs::last_error. A constructor has
//           no result; where there is no memory it throws std::bad_alloc, as `new` does.

#include <engine/filesystem/access.h>
#include <engine/filesystem/containers.h>
#include <engine/filesystem/contract.h>
#include <engine/filesystem/handles.h>
#include <engine/filesystem/loading.h>
#include <engine/filesystem/log.h>
#include <engine/filesystem/pack_reader.h>
#include <engine/filesystem/registry.h>
#include <engine/filesystem/sources.h>
#include <engine/filesystem/startup.h>
#include <engine/filesystem/streams.h>
#include <engine/filesystem/watch.h>
#include <engine/kernel/multithreading.h>
#include <engine/kernel/ztl.h>
