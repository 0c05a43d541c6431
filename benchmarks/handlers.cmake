add_executable(handlersBench ${CMAKE_CURRENT_SOURCE_DIR}/handlersBench.cpp)
target_link_libraries(handlersBench PRIVATE kzOptions kzBleServer)
