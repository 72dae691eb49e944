#include "engine/platform/modules.h"

#include <dlfcn.h>

#include <cstdio>
#include <mutex>

#include "engine/platform/lock.h"
#include "engine/platform/process.h"

namespace platform {

// A Module is the loader's own handle: there is no object of this type.

namespace {

constexpr int longest_path = 4096;

// One thread at a time is in the loader. It has a lock of its own, but one that race detectors do not see.
Mutex loader_lock;

Module* open_module(const char* directory, const char* name) {
    char path[longest_path];
    const int length = std::snprintf(path, sizeof path, "%slib%s.so", directory, name);
    if (length < 0 || length >= longest_path) return nullptr;
    return static_cast<Module*>(dlopen(path, RTLD_NOW | RTLD_LOCAL));
}

}  // namespace

Module* load_module(const char* name) {
    const std::lock_guard guard(loader_lock);
    Module* const beside = open_module(executable_directory(), name);
    return beside != nullptr ? beside : open_module("", name);
}

void* find_symbol(Module* module, const char* name) { return dlsym(module, name); }

void unload_module(Module* module) {
    const std::lock_guard guard(loader_lock);
    dlclose(module);
}

}  // namespace platform
