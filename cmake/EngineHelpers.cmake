# engine_glob(VARIABLE PATTERN...): the sources below the calling folder, looked for again at each build.
function(engine_glob variable)
    file(GLOB_RECURSE found CONFIGURE_DEPENDS LIST_DIRECTORIES false ${ARGN})
    set(${variable} ${found} PARENT_SCOPE)
endfunction()

# engine_ensure_source(VARIABLE NAME): an empty source where a folder holds none yet, since a target must have one.
function(engine_ensure_source variable name)
    if(NOT ${variable})
        set(empty ${CMAKE_CURRENT_BINARY_DIR}/${name}_empty.cpp)
        file(WRITE ${empty} "extern const int ${name}_empty = 0;\n")
        set(${variable} ${empty} PARENT_SCOPE)
    endif()
endfunction()

# Only marked names leave the library: what the compiler cannot hide (instances of the standard
# library's templates) the version script does. Calls inside the library need no detour.
function(engine_link_linux_library target)
    set(script ${PROJECT_SOURCE_DIR}/cmake/exports.map)
    target_link_options(${target} PRIVATE -Wl,--version-script=${script} -Wl,-Bsymbolic-functions)
    if(NOT ENGINE_SANITIZE)
        target_link_options(${target} PRIVATE -Wl,-z,defs)
    endif()
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${script})
endfunction()

# What a user of the static library must define and link. miniz, which may have been compiled here, goes into the archive.
function(engine_carry_dependencies target)
    target_compile_definitions(${target} INTERFACE ENGINE_FS_STATIC)
    if(TARGET engine_miniz)
        target_sources(${target} PRIVATE $<TARGET_OBJECTS:engine_miniz>)
    endif()
    set(libraries ZLIB::ZLIB Threads::Threads ${CMAKE_DL_LIBS})
    foreach(name deflate isal zstd)
        if(TARGET engine_lib${name})
            list(APPEND libraries ${name})
        endif()
    endforeach()
    target_link_libraries(${target} INTERFACE "$<INSTALL_INTERFACE:${libraries}>")
endfunction()

# engine_add_program(NAME SOURCES...): an executable with our warnings that needs nothing beside it on Windows.
function(engine_add_program name)
    add_executable(${name} ${ARGN})
    target_link_libraries(${name} PRIVATE engine_warnings)
    if(WIN32)
        target_link_options(${name} PRIVATE -static)
    endif()
endfunction()

# engine_private_headers(TARGET SCOPE): "engine/..." is a private header, <engine/...> a public one.
function(engine_private_headers target scope)
    target_compile_options(${target} ${scope} "SHELL:-iquote ${PROJECT_SOURCE_DIR}")
endfunction()

# engine_drop_other_system(VARIABLE): leaves out sources in folders named after a system that this one is not. linux/
# holds what is Linux alone, posix/ what every POSIX system has.
function(engine_drop_other_system variable)
    set(other "/windows/")
    if(WIN32)
        set(other "/(posix|linux)/")
    endif()
    set(ours)
    foreach(source IN LISTS ${variable})
        file(RELATIVE_PATH name ${PROJECT_SOURCE_DIR} ${source})
        if(NOT "/${name}" MATCHES "${other}")
            list(APPEND ours ${source})
        endif()
    endforeach()
    set(${variable} ${ours} PARENT_SCOPE)
endfunction()
