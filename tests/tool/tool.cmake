# Every command of enginefs as a user calls it, for this build's system.
find_package(Python3 COMPONENTS Interpreter REQUIRED)
foreach(part IN ITEMS tool pack formats page mount)
    add_test(NAME tool/${part} COMMAND ${Python3_EXECUTABLE} -B ${CMAKE_CURRENT_SOURCE_DIR}/tool/${part}_test.py
        $<TARGET_FILE:enginefs> ${CMAKE_CROSSCOMPILING_EMULATOR})
endforeach()
set_tests_properties(tool/mount PROPERTIES SKIP_REGULAR_EXPRESSION "not available")
if(TARGET pages)
    add_test(NAME tool/pages COMMAND ${Python3_EXECUTABLE} -B ${CMAKE_CURRENT_SOURCE_DIR}/tool/pages_test.py
        $<TARGET_FILE:enginefs> ${engine_pages})
endif()
# A page is the same from every system.
if(NOT CMAKE_CROSSCOMPILING)
    add_test(NAME tool/browser COMMAND ${Python3_EXECUTABLE} -B ${CMAKE_CURRENT_SOURCE_DIR}/tool/browser_test.py
        $<TARGET_FILE:enginefs>)
    set_tests_properties(tool/browser PROPERTIES SKIP_REGULAR_EXPRESSION "not available")
endif()
