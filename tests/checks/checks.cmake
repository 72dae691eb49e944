# What the compiler cannot check. The tree is the same for every build, so Linux looks at it alone.
find_package(Python3 COMPONENTS Interpreter REQUIRED)

function(engine_add_check name)
    add_test(NAME checks/${name} COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/checks/${name}.py ${ARGN})
endfunction()

if(WIN32 AND engine_library_type STREQUAL SHARED)
    engine_add_check(dll_needs $<TARGET_FILE:engine_filesystem> $<TARGET_FILE:engine_tests>)
elseif(NOT WIN32)
    engine_add_check(os_headers ${PROJECT_SOURCE_DIR})
    engine_add_check(layers ${PROJECT_SOURCE_DIR})
    engine_add_check(words ${PROJECT_SOURCE_DIR})
endif()
if(NOT ENGINE_SANITIZE AND engine_library_type STREQUAL SHARED)
    engine_add_check(exported_names ${PROJECT_SOURCE_DIR} $<TARGET_FILE:engine_filesystem>)
endif()
