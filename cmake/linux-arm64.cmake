# Linux on 64-bit ARM by Debian's cross compiler; the libraries are those that scripts/setup --arm64 unpacks.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_FIND_ROOT_PATH ${CMAKE_CURRENT_LIST_DIR}/../.deps/arm64/usr /usr/aarch64-linux-gnu)
# Where the linker finds what a shared library of ours needs.
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,-rpath-link,${CMAKE_CURRENT_LIST_DIR}/../.deps/arm64/usr/lib/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# Packages also where CMAKE_PREFIX_PATH says: an outside project looks for an installed engine_filesystem there.
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
if(NOT CMAKE_CROSSCOMPILING_EMULATOR)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/arm64-run)
endif()
