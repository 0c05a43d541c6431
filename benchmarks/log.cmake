# The log of the whole daemon, measured on its real binary in a private world.
if(KZ_BUILD_TESTS)
  add_executable(logBench ${CMAKE_CURRENT_SOURCE_DIR}/logBench.cpp)
  target_link_libraries(logBench PRIVATE kzOptions kzE2eEngine)
  add_dependencies(logBench kzBleSdkD)
endif()
