# The road through the desk.
if(KZ_BUILD_TESTS)
  add_executable(deskBench ${CMAKE_CURRENT_SOURCE_DIR}/deskBench.cpp ${CMAKE_CURRENT_SOURCE_DIR}/roadsRig.cpp)
  target_link_libraries(deskBench PRIVATE kzOptions kzE2eEngine kzCommon kzBleClient PkgConfig::HTTPLIB)
  target_compile_definitions(
    deskBench PRIVATE KZ_SCRIPTS="${PROJECT_SOURCE_DIR}/scripts" KZ_DESK="$<TARGET_FILE:kzdesk>"
                      KZ_CAMERA_SIM="$<TARGET_FILE:kzCameraSim>")
  add_dependencies(deskBench kzBleSdkD kzCameraSim kzdesk)
endif()
