# Every command of enginefs as a user calls it, for this build's system.
find_package(Python3 COMPONENTS Interpreter REQUIRED)
foreach(part IN ITEMS tool pack formats mount)
    add_test(NAME tool/${part} COMMAND ${Python3_EXECUTABLE} -B ${CMAKE_CURRENT_SOURCE_DIR}/tool/${part}_test.py
        $<TARGET_FILE:enginefs> ${CMAKE_CROSSCOMPILING_EMULATOR})
endforeach()
set_tests_properties(tool/mount PROPERTIES SKIP_REGULAR_EXPRESSION "not available")
if(TARGET pages)
    add_test(NAME tool/pages COMMAND ${Python3_EXECUTABLE} -B ${CMAKE_CURRENT_SOURCE_DIR}/tool/pages_test.py
        $<TARGET_FILE:enginefs> ${engine_pages})
endif()
