# The roads through the whole daemon, measured on its real binary in a private world.
if(KZ_BUILD_TESTS)
  add_executable(roadsEmpty ${CMAKE_CURRENT_SOURCE_DIR}/roadsEmpty.cpp)
  target_link_libraries(roadsEmpty PRIVATE kzOptions kzBleServer)

  add_library(kzAllocationCounter MODULE ${CMAKE_CURRENT_SOURCE_DIR}/allocationCounter.cpp)
  target_link_libraries(kzAllocationCounter PRIVATE kzOptions)

  find_package(ZLIB REQUIRED)
  add_executable(
    roadsBench ${CMAKE_CURRENT_SOURCE_DIR}/roadsBench.cpp ${CMAKE_CURRENT_SOURCE_DIR}/roadsRig.cpp
               ${CMAKE_CURRENT_SOURCE_DIR}/roadsAllocations.cpp)
  target_link_libraries(roadsBench PRIVATE kzOptions kzE2eEngine kzBleModel kzBleFraming ZLIB::ZLIB)
  target_compile_definitions(roadsBench PRIVATE KZ_ROADS_EMPTY="$<TARGET_FILE:roadsEmpty>"
                                                KZ_SCRIPTS="${PROJECT_SOURCE_DIR}/scripts"
                                                KZ_ALLOCATION_COUNTER="$<TARGET_FILE:kzAllocationCounter>")
  add_dependencies(roadsBench kzBleSdkD roadsEmpty kzAllocationCounter)
endif()

# The instructions of the same roads; valgrind counts them.
if(KZ_BUILD_TESTS)
  add_executable(instructionsBench ${CMAKE_CURRENT_SOURCE_DIR}/instructionsBench.cpp ${CMAKE_CURRENT_SOURCE_DIR}/roadsRig.cpp)
  target_link_libraries(instructionsBench PRIVATE kzOptions kzE2eEngine kzCommon)
  target_compile_definitions(instructionsBench PRIVATE KZ_SCRIPTS="${PROJECT_SOURCE_DIR}/scripts")
  add_dependencies(instructionsBench kzBleSdkD)
endif()

# How long it is busy while the camera's services hang.
if(KZ_BUILD_TESTS)
  add_executable(stallBench ${CMAKE_CURRENT_SOURCE_DIR}/stallBench.cpp ${CMAKE_CURRENT_SOURCE_DIR}/roadsRig.cpp)
  target_link_libraries(stallBench PRIVATE kzOptions kzE2eEngine kzCommon)
  target_compile_definitions(stallBench PRIVATE KZ_SCRIPTS="${PROJECT_SOURCE_DIR}/scripts")
  add_dependencies(stallBench kzBleSdkD)
endif()
