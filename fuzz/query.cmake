kz_add_fuzzer(queryMessageFuzz SOURCES queryMessageFuzz.cpp LIBS kzFakes kzBleServer)
