add_executable(modelBench ${CMAKE_CURRENT_SOURCE_DIR}/modelBench.cpp)
target_link_libraries(modelBench PRIVATE kzOptions kzBleModel)
