# The run-time libraries. All of them are linked privately; on Windows statically, so that the DLL stands alone.
set(engine_setup_hint "Run scripts/setup, which installs or fetches it.")

add_library(engine_dependencies INTERFACE)

find_package(Threads REQUIRED)
target_link_libraries(engine_dependencies INTERFACE Threads::Threads ${CMAKE_DL_LIBS})

if(WIN32)
    set(CMAKE_FIND_LIBRARY_SUFFIXES .a)
endif()

find_package(ZLIB)
if(NOT ZLIB_FOUND)
    message(FATAL_ERROR "zlib is missing for this target (zlib1g-dev, libz-mingw-w64-dev). ${engine_setup_hint}")
endif()
target_link_libraries(engine_dependencies INTERFACE ZLIB::ZLIB)

# engine_optional_library(NAME HEADER LIBRARY USE): found, its use is compiled in by ENGINE_HAS_NAME; not found, or not wanted
# (ENGINE_WITH_NAME), the library builds without it. For Windows scripts/setup compiles it.
function(engine_optional_library name header library use)
    if(NOT ENGINE_WITH_${name})
        return()
    endif()
    if(WIN32)
        set(where PATHS ${ENGINE_DEPS_DIR}/windows NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
    endif()
    find_path(ENGINE_${name}_INCLUDE ${header} ${where} PATH_SUFFIXES include isa-l)
    find_library(ENGINE_${name}_LIBRARY ${library} ${where} PATH_SUFFIXES lib)
    if(NOT ENGINE_${name}_INCLUDE OR NOT ENGINE_${name}_LIBRARY)
        message(STATUS "lib${library} not found: ${use}. ${engine_setup_hint}")
        return()
    endif()
    add_library(engine_lib${library} UNKNOWN IMPORTED GLOBAL)
    set_target_properties(engine_lib${library} PROPERTIES IMPORTED_LOCATION ${ENGINE_${name}_LIBRARY}
        INTERFACE_INCLUDE_DIRECTORIES ${ENGINE_${name}_INCLUDE})
    target_link_libraries(engine_dependencies INTERFACE engine_lib${library})
    target_compile_definitions(engine_dependencies INTERFACE ENGINE_HAS_${name}=1)
endfunction()

engine_optional_library(LIBDEFLATE libdeflate.h deflate "whole buffers go through zlib")
engine_optional_library(ISAL igzip_lib.h isal "deflate streams go through zlib")
engine_optional_library(ZSTD zstd.h zstd "zstd entries of packs are not read or written")

# miniz writes zip files. Its zlib look-alike names and its stdio are left out: zlib is the real one
# here, and bytes reach the disk through the library's own handles.
find_package(miniz CONFIG QUIET ONLY_CMAKE_FIND_ROOT_PATH)
if(miniz_FOUND)
    target_link_libraries(engine_dependencies INTERFACE miniz::miniz)
elseif(EXISTS ${ENGINE_MINIZ_SOURCE_DIR}/miniz.c AND EXISTS ${ENGINE_MINIZ_SOURCE_DIR}/miniz.h)
    add_library(engine_miniz STATIC ${ENGINE_MINIZ_SOURCE_DIR}/miniz.c)
    target_include_directories(engine_miniz SYSTEM PUBLIC ${ENGINE_MINIZ_SOURCE_DIR})
    target_compile_definitions(engine_miniz PRIVATE MINIZ_NO_STDIO)
    target_compile_options(engine_miniz PRIVATE -w)
    set_target_properties(engine_miniz PROPERTIES POSITION_INDEPENDENT_CODE ON)
    target_link_libraries(engine_dependencies INTERFACE engine_miniz)
else()
    message(FATAL_ERROR "miniz is missing: no CMake package, and no miniz.c and miniz.h in \"${ENGINE_MINIZ_SOURCE_DIR}\" "
        "(ENGINE_MINIZ_SOURCE_DIR). ${engine_setup_hint}")
endif()
target_compile_definitions(engine_dependencies INTERFACE MINIZ_NO_STDIO MINIZ_NO_ZLIB_COMPATIBLE_NAMES)
