kz_add_fuzzer(tlvFuzz SOURCES tlvFuzz.cpp LIBS kzFakes kzBleLib)
