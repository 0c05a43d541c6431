kz_add_fuzzer(settingsJsonFuzz SOURCES settingsJsonFuzz.cpp LIBS kzFakes kzBleModel)
kz_add_fuzzer(pushJsonFuzz SOURCES pushJsonFuzz.cpp LIBS kzFakes kzBleModel)
