kz_add_fuzzer(kzmfValidFuzz SOURCES kzmfValidFuzz.cpp LIBS kzMetadata kzMetadataReader)
kz_add_fuzzer(kzmfWriteFuzz SOURCES kzmfWriteFuzz.cpp LIBS kzMetadata kzMetadataReader)
