# Every command of enginefs as a user calls it, for this build's system.
find_package(Python3 COMPONENTS Interpreter REQUIRED)
add_test(NAME tool/commands COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/tool/tool_test.py
    $<TARGET_FILE:enginefs> ${CMAKE_CROSSCOMPILING_EMULATOR})
