# The target for hosts of <engine/filesystem_c.h>. On Windows it comes with an import library in the form that the linkers of
# MSVC and clang read, which has the C names alone: nobody but MinGW can call the others.
add_library(engine_filesystem_c INTERFACE)
add_library(engine::filesystem_c ALIAS engine_filesystem_c)
target_link_libraries(engine_filesystem_c INTERFACE engine_filesystem)

find_program(ENGINE_DLLTOOL NAMES llvm-dlltool llvm-dlltool-19 llvm-dlltool-16 llvm-dlltool-14)
if(WIN32 AND ENGINE_DLLTOOL AND engine_library_type STREQUAL SHARED)
    set(header ${PROJECT_SOURCE_DIR}/include/engine/filesystem_c.h)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
    file(READ ${header} text)
    string(REGEX MATCHALL "\nENGINE_FS_API [^(]+" declarations "${text}")
    set(exports "LIBRARY engine_filesystem.dll\nEXPORTS\n")
    foreach(declaration IN LISTS declarations)
        string(REGEX REPLACE ".*[ *]" "" name "${declaration}")
        string(APPEND exports "    ${name}\n")
    endforeach()
    set(definition ${CMAKE_CURRENT_BINARY_DIR}/engine_filesystem_c.def)
    file(CONFIGURE OUTPUT ${definition} CONTENT "${exports}" @ONLY)
    set(engine_c_import_library ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/engine_filesystem_c.lib)
    add_custom_command(OUTPUT ${engine_c_import_library} DEPENDS ${definition}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}
        COMMAND ${ENGINE_DLLTOOL} -m i386:x86-64 -d ${definition} -l ${engine_c_import_library})
    add_custom_target(engine_filesystem_c_import ALL DEPENDS ${engine_c_import_library})
endif()
