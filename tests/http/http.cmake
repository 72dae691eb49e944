# Packs by URL: a client over the module, and the servers that it meets.
engine_add_program(http_client http/client.cpp)
target_link_libraries(http_client PRIVATE engine_filesystem_http)
add_test(NAME http COMMAND ${Python3_EXECUTABLE} -B ${CMAKE_CURRENT_SOURCE_DIR}/http/http_test.py
    $<TARGET_FILE:http_client> $<TARGET_FILE:enginefs>)
add_test(NAME http/nginx COMMAND ${Python3_EXECUTABLE} -B ${CMAKE_CURRENT_SOURCE_DIR}/http/nginx_test.py
    $<TARGET_FILE:http_client> ${ENGINE_DEPS_DIR})
set_tests_properties(http/nginx PROPERTIES SKIP_REGULAR_EXPRESSION "not available")
