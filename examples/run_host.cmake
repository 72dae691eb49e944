# Installs a build to a fresh prefix, and builds and runs the hosts, in C++ and in C, against it as outside projects would.
set(prefix ${ENGINE_BUILD_DIR}/host_test/prefix)
set(build ${ENGINE_BUILD_DIR}/host_test/build)
set(c_build ${ENGINE_BUILD_DIR}/host_test/c_build)
file(REMOVE_RECURSE ${ENGINE_BUILD_DIR}/host_test)

set(c_root ${ENGINE_BUILD_DIR}/host_test/c_root)
file(MAKE_DIRECTORY ${c_root})
if(ENGINE_SUFFIX STREQUAL ".exe")
    string(PREPEND c_root "Z:")
endif()

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        string(REPLACE ";" " " command "${ARGN}")
        message(FATAL_ERROR "failed (${result}): ${command}")
    endif()
endfunction()

set(options -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Release)
if(ENGINE_TOOLCHAIN)
    list(APPEND options -DCMAKE_TOOLCHAIN_FILE=${ENGINE_TOOLCHAIN})
else()
    list(APPEND options -DCMAKE_CXX_COMPILER=${ENGINE_CXX_COMPILER})
endif()
if(ENGINE_SANITIZE)
    list(APPEND options "-DCMAKE_CXX_FLAGS=-fsanitize=${ENGINE_SANITIZE}" "-DCMAKE_C_FLAGS=-fsanitize=${ENGINE_SANITIZE}")
endif()

run(${CMAKE_COMMAND} --install ${ENGINE_BUILD_DIR} --prefix ${prefix})
run(${CMAKE_COMMAND} -S ${ENGINE_SOURCE_DIR}/examples/host -B ${build} -G ${ENGINE_GENERATOR} ${options})
run(${CMAKE_COMMAND} --build ${build})
run(${ENGINE_EMULATOR} ${build}/host${ENGINE_SUFFIX})
run(${CMAKE_COMMAND} -S ${ENGINE_SOURCE_DIR}/examples/c_host -B ${c_build} -G ${ENGINE_GENERATOR} ${options})
run(${CMAKE_COMMAND} --build ${c_build})
run(${ENGINE_EMULATOR} ${c_build}/c_host${ENGINE_SUFFIX} ${c_root})

# Packs on web servers are a component, where it was built. Nobody listens on port 1.
if(EXISTS ${prefix}/include/engine/filesystem_http.h)
    set(http_build ${ENGINE_BUILD_DIR}/host_test/http_build)
    run(${CMAKE_COMMAND} -S ${ENGINE_SOURCE_DIR}/examples/http -B ${http_build} -G ${ENGINE_GENERATOR} ${options})
    run(${CMAKE_COMMAND} --build ${http_build})
    execute_process(COMMAND ${http_build}/http_host http://127.0.0.1:1/x.pak x ERROR_VARIABLE said)
    if(NOT said MATCHES "x.pak\" cannot be read: the transfer failed")
        message(FATAL_ERROR "http_host says: ${said}")
    endif()
endif()

# The installed tool finds the installed library by itself.
if(EXISTS ${prefix}/bin/enginefs${ENGINE_SUFFIX})
    run(${ENGINE_EMULATOR} ${prefix}/bin/enginefs${ENGINE_SUFFIX} --help)
endif()

# pkg-config gives the same, from wherever the tree was put.
find_program(pkg_config pkg-config)
if(pkg_config AND NOT ENGINE_TOOLCHAIN AND NOT ENGINE_SANITIZE)
    file(GLOB_RECURSE found ${prefix}/*/engine_filesystem.pc)
    get_filename_component(folder ${found} DIRECTORY)
    get_filename_component(library_folder ${folder} DIRECTORY)
    foreach(module engine_filesystem engine_filesystem_c)
        execute_process(COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${folder} ${pkg_config} --cflags --libs ${module}
            OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
        separate_arguments(flags_of_${module} UNIX_COMMAND "${flags} -Wl,-rpath,${library_folder}")
    endforeach()
    run(${ENGINE_CXX_COMPILER} ${ENGINE_SOURCE_DIR}/examples/host/main.cpp -o ${build}/host_by_pkg_config
        ${flags_of_engine_filesystem})
    run(${build}/host_by_pkg_config)
    find_program(cc NAMES cc gcc clang REQUIRED)
    run(${cc} -std=c99 -Wall -Wextra -pedantic -Werror ${ENGINE_SOURCE_DIR}/examples/c_host/main.c -o
        ${c_build}/c_host_by_pkg_config ${flags_of_engine_filesystem_c})
    run(${c_build}/c_host_by_pkg_config ${c_root})
endif()
