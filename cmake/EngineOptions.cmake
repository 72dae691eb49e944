# What may be chosen at configure time, and the compiler settings that follow from it. As a part of another project all of
# this holds for this folder alone, and nothing but the library is built unless asked for.

if(DEFINED ENV{CI})
    set(engine_in_ci ON)
else()
    set(engine_in_ci OFF)
endif()
option(ENGINE_WERROR "Warnings are errors" ${engine_in_ci})
option(ENGINE_BUILD_TESTS "Build the tests" ${PROJECT_IS_TOP_LEVEL})
option(ENGINE_BUILD_TOOLS "Build the enginefs tool" ${PROJECT_IS_TOP_LEVEL})
option(ENGINE_INSTALL "Make rules to install what is built" ${PROJECT_IS_TOP_LEVEL})
option(ENGINE_BUILD_FUZZERS "Build the fuzz targets (clang only)" OFF)
option(ENGINE_BUILD_BENCHMARKS "Build the benchmarks" OFF)
option(ENGINE_WITH_LIBDEFLATE "Use libdeflate for whole buffers where it is found" ON)
option(ENGINE_WITH_ISAL "Use ISA-L to inflate streams where it is found" ON)
option(ENGINE_WITH_ZSTD "Read and write zstd entries of packs where libzstd is found" ON)
set(ENGINE_WITH_HTTP AUTO CACHE STRING "Build the module for packs on web servers (Linux): ON, OFF, or AUTO where libcurl is found")
set(ENGINE_SANITIZE "" CACHE STRING "Sanitizers for the whole build, e.g. address,undefined")
set(ENGINE_DEPS_DIR ${CMAKE_CURRENT_SOURCE_DIR}/.deps CACHE PATH "Where scripts/setup puts what it fetches")
set(ENGINE_MINIZ_SOURCE_DIR ${ENGINE_DEPS_DIR}/miniz CACHE PATH "Folder of miniz.c and miniz.h, where no miniz package is found")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ${PROJECT_IS_TOP_LEVEL})

# Executables and DLLs share one folder, so that Windows finds the library beside the program.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)

# The library is shared unless the builder says otherwise; CMake's own default would be static.
if(DEFINED BUILD_SHARED_LIBS AND NOT BUILD_SHARED_LIBS)
    set(engine_library_type STATIC)
else()
    set(engine_library_type SHARED)
endif()

if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()
string(REPLACE "-O3" "-O2" CMAKE_CXX_FLAGS_RELEASE "${CMAKE_CXX_FLAGS_RELEASE}")
string(REPLACE "-O3" "-O2" CMAKE_C_FLAGS_RELEASE "${CMAKE_C_FLAGS_RELEASE}")

if(NOT DEFINED CMAKE_CXX_COMPILER_LAUNCHER AND NOT engine_in_ci)
    find_program(ENGINE_CCACHE ccache)
    if(ENGINE_CCACHE)
        set(CMAKE_C_COMPILER_LAUNCHER ${ENGINE_CCACHE})
        set(CMAKE_CXX_COMPILER_LAUNCHER ${ENGINE_CCACHE})
    endif()
endif()

set(THREADS_PREFER_PTHREAD_FLAG ON)
if(ENGINE_SANITIZE)
    add_compile_options(-fsanitize=${ENGINE_SANITIZE} -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${ENGINE_SANITIZE})
    if(ENGINE_SANITIZE MATCHES "undefined")
        add_compile_options(-fno-sanitize-recover=all)
    endif()
endif()
if(ENGINE_BUILD_FUZZERS)
    if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        message(FATAL_ERROR "The fuzz targets need clang: configure with the preset \"fuzz\".")
    endif()
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(WIN32)
    # C99 formatting from MinGW's own printf, Windows 10, and a windows.h that leaves min and max alone.
    add_compile_definitions(__USE_MINGW_ANSI_STDIO=1 _WIN32_WINNT=0x0A00 NOMINMAX WIN32_LEAN_AND_MEAN)
    # The same sources give the same file, whenever it is linked.
    add_link_options(-Wl,--no-insert-timestamp)
endif()

add_library(engine_warnings INTERFACE)
target_compile_options(engine_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
    $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond> $<$<CXX_COMPILER_ID:GNU>:-Wlogical-op>)
if(ENGINE_WERROR)
    target_compile_options(engine_warnings INTERFACE -Werror)
endif()
