kz_add_fuzzer(captureFuzz SOURCES captureFuzz.cpp LIBS kzCapture)
