#pragma once

// Without an end on purpose.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winfinite-recursion"
[[gnu::noinline]] inline int use_up_stack(int depth) {
    if (depth < 0) return 0;
    volatile char block[4096];
    block[0] = static_cast<char>(depth);
    return use_up_stack(depth + 1) + block[0];
}
#pragma GCC diagnostic pop
