#pragma once

// File formats that hold many blobs.

#include <engine/filesystem/containers/multi_container.h>
#include <engine/filesystem/containers/pack_writer.h>
#include <engine/filesystem/containers/zip.h>
