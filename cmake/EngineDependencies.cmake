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

# libdeflate only makes things faster; results never depend on it.
if(ENGINE_WITH_LIBDEFLATE)
    if(WIN32)
        set(engine_libdeflate_where PATHS ${ENGINE_DEPS_DIR}/windows NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
    endif()
    find_path(ENGINE_LIBDEFLATE_INCLUDE libdeflate.h ${engine_libdeflate_where} PATH_SUFFIXES include)
    find_library(ENGINE_LIBDEFLATE_LIBRARY deflate ${engine_libdeflate_where} PATH_SUFFIXES lib)
    if(ENGINE_LIBDEFLATE_INCLUDE AND ENGINE_LIBDEFLATE_LIBRARY)
        add_library(engine_libdeflate UNKNOWN IMPORTED)
        set_target_properties(engine_libdeflate PROPERTIES IMPORTED_LOCATION ${ENGINE_LIBDEFLATE_LIBRARY}
            INTERFACE_INCLUDE_DIRECTORIES ${ENGINE_LIBDEFLATE_INCLUDE})
        target_link_libraries(engine_dependencies INTERFACE engine_libdeflate)
        target_compile_definitions(engine_dependencies INTERFACE ENGINE_HAS_LIBDEFLATE=1)
    else()
        message(STATUS "libdeflate not found: whole buffers go through zlib. ${engine_setup_hint}")
    endif()
endif()

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
