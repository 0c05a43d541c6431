# Writes kzVersion.cpp (OUTPUT) for the sources in SOURCE_DIR. An unchanged file is left alone, so that nothing is linked
# anew. Sources without a repository name their commit in the environment, KZ_COMMIT.
cmake_minimum_required(VERSION 3.25)
set(commit $ENV{KZ_COMMIT})
if(NOT commit)
  execute_process(
    COMMAND git -C ${SOURCE_DIR} describe --always --abbrev=12 --exclude=* --dirty=+
    OUTPUT_VARIABLE commit
    OUTPUT_STRIP_TRAILING_WHITESPACE
    ERROR_QUIET)
endif()
if(NOT commit)
  set(commit unknown)
endif()
file(CONFIGURE OUTPUT ${OUTPUT} CONTENT "#include \"kzVersion.h\"

const char* const kzVersion = \"@VERSION@ (commit @commit@)\";
" @ONLY)
