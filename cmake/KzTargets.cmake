# What every target of the project shares: warnings as errors on our own code, the hardening of a release, and the
# sanitizers of a preset.

add_library(kzOptions INTERFACE)
target_compile_options(
  kzOptions INTERFACE -Wall -Wextra -Wconversion -Wshadow -Wformat=2 -Werror
                      $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)

# What is shipped: a smashed stack or an overrun of a known size ends the process, and no table of addresses stays
# writable. A system's compiler may have its own _FORTIFY_SOURCE, which has to go first.
set(released $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
add_compile_options("$<${released}:-fstack-protector-strong;-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
add_link_options("$<${released}:-Wl,-z,relro,-z,now>")

# The same bytes in whatever folder. A path in a message or in the symbols starts at the project, where a debugger that is
# started there finds it. What a compiler would draw by lot, to tell objects apart, is the object's name. The assembler
# writes paths of its own.
if(KZ_REPRODUCIBLE)
  foreach(folder ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
    add_compile_options(-ffile-prefix-map=${folder}=. -Wa,--debug-prefix-map=${folder}=.)
  endforeach()
  foreach(language C CXX)
    string(REPLACE " -o <OBJECT>" " -frandom-seed=<OBJECT> -o <OBJECT>" CMAKE_${language}_COMPILE_OBJECT
                   "${CMAKE_${language}_COMPILE_OBJECT}")
  endforeach()
  set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)  # an installation blanks the build's path, whose length would stay
endif()

# The daemon is optimised as a whole when it is linked, because what it does for a packet is spread over many small
# functions of several rooms. The libraries that it is made of link kzWholeProgram: their objects hold machine code too,
# which every other program links as usual. Only g++ makes such objects.
add_library(kzWholeProgram INTERFACE)
if(KZ_WHOLE_PROGRAM AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(kzWholeProgram INTERFACE -flto=auto -ffat-lto-objects)
  add_link_options($<IF:$<BOOL:$<TARGET_PROPERTY:KZ_WHOLE_PROGRAM>>,-flto=auto,-fno-lto>)
endif()

if(KZ_SANITIZE)
  add_compile_options(-fsanitize=${KZ_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KZ_SANITIZE})
  if(KZ_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()

# The counters are a file's memory, shared by all processes of a program: those that end by a signal or by _exit count too.
if(KZ_COVERAGE)
  add_compile_options(-fprofile-instr-generate=${PROJECT_BINARY_DIR}/profiles/%m%c.profraw -fcoverage-mapping
                      "SHELL:-mllvm -runtime-counter-relocation")
  add_link_options(-fprofile-instr-generate)
endif()

# kz_installed_path(VARIABLE START FROM TO): how a file in the installation's folder FROM, which it calls START, names the
# folder TO: relatively, so that the prefix is free until the installation, unless one of them lies outside any prefix.
function(kz_installed_path variable start from to)
  if(IS_ABSOLUTE "${from}" OR IS_ABSOLUTE "${to}")
    cmake_path(ABSOLUTE_PATH to BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} OUTPUT_VARIABLE path)
  else()
    file(RELATIVE_PATH path /${from} /${to})
    set(path ${start}/${path})
  endif()
  set(${variable} ${path} PARENT_SCOPE)
endfunction()

# kz_add_test(NAME SOURCES file... LIBS target...): one GoogleTest program; each of its cases is a test of its own, so
# that they run in parallel.
function(kz_add_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE kzOptions ${ARG_LIBS} GTest::gtest GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
endfunction()

# kz_add_fuzzer(NAME SOURCES file... LIBS target...): one fuzz target of the folder fuzz. With KZ_BUILD_FUZZERS it is a
# libFuzzer program, and the target `fuzzers` builds them all; without, it is a test that replays its inputs: those that
# are made from the protocol's examples, and those of fuzz/corpus.
function(kz_add_fuzzer name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE kzOptions ${ARG_LIBS})
  add_dependencies(${name} fuzzCorpora)
  if(KZ_BUILD_FUZZERS)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    add_dependencies(fuzzers ${name})
  else()
    target_sources(${name} PRIVATE ${PROJECT_SOURCE_DIR}/fuzz/replay.cpp)
    add_test(NAME fuzz.${name} COMMAND ${name} ${PROJECT_BINARY_DIR}/fuzz/corpora/${name}
                                       ${PROJECT_SOURCE_DIR}/fuzz/corpus/${name})
  endif()
endfunction()
