# The roads through the whole daemon, measured on its real binary in a private world.
add_executable(roadsBench ${CMAKE_CURRENT_SOURCE_DIR}/roadsBench.cpp)
target_link_libraries(roadsBench PRIVATE kzOptions)
