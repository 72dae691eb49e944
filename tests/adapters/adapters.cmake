# The examples of the adapters; a test for each also where its library is missing, so that nobody takes it for tried.
foreach(example IN ITEMS istream sdl2 sdl3 lua5.4 luajit stb_image imgui)
    if(TARGET adapter_${example})
        add_test(NAME adapters/${example} COMMAND ${Python3_EXECUTABLE} -B ${CMAKE_CURRENT_SOURCE_DIR}/../tests/adapters/adapters_test.py
            ${example} $<TARGET_FILE:adapter_${example}> ${CMAKE_CROSSCOMPILING_EMULATOR})
    else()
        add_test(NAME adapters/${example} COMMAND ${CMAKE_COMMAND} -E echo "not available: its library was not found")
    endif()
    set_tests_properties(adapters/${example} PROPERTIES SKIP_REGULAR_EXPRESSION "not available")
endforeach()
