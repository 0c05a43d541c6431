kz_add_fuzzer(tlvFuzz SOURCES tlvFuzz.cpp quietSyslog.cpp LIBS kzCommon)
kz_add_fuzzer(msgFuzz SOURCES msgFuzz.cpp quietSyslog.cpp LIBS kzBleLib)
