kz_add_fuzzer(packetStreamFuzz SOURCES packetStreamFuzz.cpp LIBS kzBleFraming)
kz_add_fuzzer(
  accessoryImageFuzz SOURCES accessoryImageFuzz.cpp ${PROJECT_SOURCE_DIR}/kzBleSdkD/src/accessoryImage.cpp
  LIBS kzBleFraming kzPlatformHeaders)
