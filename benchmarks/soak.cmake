# The soak, which scripts/soak runs: clients of all kinds on the real daemon and the simulated camera.
find_package(nlohmann_json REQUIRED)
add_executable(
  soak
  soak.cpp
  soakAccessories.cpp
  soakBoard.cpp
  soakCamera.cpp
  soakClient.cpp
  soakDuties.cpp
  soakFaults.cpp
  soakFixed.cpp
  soakPhone.cpp
  soakPresets.cpp
  soakTally.cpp
  soakValues.cpp)
target_link_libraries(soak PRIVATE kzOptions kzBleClient nlohmann_json::nlohmann_json Threads::Threads)
target_include_directories(soak PRIVATE ${PROJECT_SOURCE_DIR})
target_compile_definitions(soak PRIVATE KZ_SIMULATOR="$<TARGET_FILE:kzCameraSim>" KZ_DAEMON="$<TARGET_FILE:kzBleSdkD>")
add_dependencies(soak kzCameraSim kzBleSdkD)
