# Builds and runs the project that has the library as a part of it; installing that project installs nothing of the library.
set(build ${ENGINE_BUILD_DIR}/embedded_test)
file(REMOVE_RECURSE ${build}/prefix)

function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

run(${CMAKE_COMMAND} -S ${ENGINE_SOURCE_DIR}/examples/embedded -B ${build} -G ${ENGINE_GENERATOR}
    -DCMAKE_CXX_COMPILER=${ENGINE_CXX_COMPILER})
run(${CMAKE_COMMAND} --build ${build})
run(${build}/embedded ${ENGINE_SOURCE_DIR}/examples/embedded main.cpp)
run(${CMAKE_COMMAND} --install ${build} --prefix ${build}/prefix)
file(GLOB_RECURSE installed ${build}/prefix/*)
file(GLOB outside ${build}/bin ${build}/lib)
if(installed OR outside)
    message(FATAL_ERROR "files of the library outside its folder: ${installed} ${outside}")
endif()
