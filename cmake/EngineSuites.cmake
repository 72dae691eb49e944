# engine_add_suites(TARGET): one ctest test for each suite of a GoogleTest program. The suites are
# asked for when ctest starts (see suites.cmake.in), so that building needs no emulator.
function(engine_add_suites target)
    set(ENGINE_SUITES_TARGET ${target})
    set(ENGINE_SUITES_EMULATOR ${CMAKE_CROSSCOMPILING_EMULATOR})
    set(ENGINE_SUITES_PROGRAM ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${target}${CMAKE_EXECUTABLE_SUFFIX})
    set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}_suites.cmake)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/suites.cmake.in ${script} @ONLY)
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${script})
endfunction()
