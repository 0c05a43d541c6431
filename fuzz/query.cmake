kz_add_fuzzer(queryMessageFuzz SOURCES queryMessageFuzz.cpp LIBS kzFakes kzBleServer)
kz_add_fuzzer(
  csiMessageFuzz
  SOURCES
  csiMessageFuzz.cpp
  ${PROJECT_SOURCE_DIR}/tests/server/playedQueues.cpp
  LIBS
  kzFakes
  kzBleServer)
target_include_directories(csiMessageFuzz PRIVATE ${PROJECT_SOURCE_DIR}/tests/server)
