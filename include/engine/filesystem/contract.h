#pragma once

// What sources and open files promise, and the small types that travel with every call.

#include <engine/filesystem/contract/error.h>
#include <engine/filesystem/contract/file.h>
#include <engine/filesystem/contract/flags.h>
#include <engine/filesystem/contract/names.h>
#include <engine/filesystem/contract/path.h>
#include <engine/filesystem/contract/read_only_source.h>
#include <engine/filesystem/contract/source.h>
#include <engine/filesystem/contract/whole_names.h>
#include <engine/filesystem/request.h>
