kz_add_fuzzer(packetStreamFuzz SOURCES packetStreamFuzz.cpp LIBS kzBleFraming)
kz_add_fuzzer(accessoryImageFuzz SOURCES accessoryImageFuzz.cpp LIBS kzBleCamera)
kz_add_fuzzer(
  serverFuzz
  SOURCES
  serverFuzz.cpp
  ${PROJECT_SOURCE_DIR}/tests/server/playedQueues.cpp
  LIBS
  kzFakes
  kzBleServer)
target_include_directories(serverFuzz PRIVATE ${PROJECT_SOURCE_DIR}/tests/server)
