#pragma once

/// What a test tells the companion module, and learns from it.
struct CacheServiceControl {
    bool inits = false;
    bool is_running = false;
    bool refuses_mount = false;
    const char* const* items = nullptr;
    int item_count = 0;
    char path[260] = "";  // of the last mount point
    int second = 0;
    int items_released = 0;
    int mount_points_released = 0;
};
