kz_add_fuzzer(settingsJsonFuzz SOURCES settingsJsonFuzz.cpp quietSyslog.cpp LIBS kzBleModel)
kz_add_fuzzer(pushJsonFuzz SOURCES pushJsonFuzz.cpp quietSyslog.cpp LIBS kzBleModel)
