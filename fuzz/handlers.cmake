kz_add_fuzzer(commandMessageFuzz SOURCES commandMessageFuzz.cpp LIBS kzFakes kzBleCore)
kz_add_fuzzer(settingsMessageFuzz SOURCES settingsMessageFuzz.cpp LIBS kzFakes kzBleCore)
