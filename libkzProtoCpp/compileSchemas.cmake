# Runs protoc over SCHEMA_FILES (relative to SCHEMA_DIR): C++ code into OUTPUT_DIR, and all schemas as one descriptor set into
# DESCRIPTOR_SET, for programs that read them at run time. The schemas carry no syntax statement on purpose: protoc's remark
# about that, one line a file, is left out; everything else it says is shown.
#
# A file that comes out as it was keeps its time, so that a schema that changes rebuilds only what uses it.
set(fresh ${OUTPUT_DIR}.fresh)
file(REMOVE_RECURSE ${fresh})
file(MAKE_DIRECTORY ${fresh})
execute_process(
  COMMAND ${PROTOC} -I. --cpp_out=${fresh} --descriptor_set_out=${fresh}.desc --include_imports ${SCHEMA_FILES}
  WORKING_DIRECTORY ${SCHEMA_DIR}
  RESULT_VARIABLE result
  ERROR_VARIABLE messages)
string(REGEX REPLACE "[^\n]*No syntax specified for the proto file[^\n]*\n?" "" messages "${messages}")
if(messages)
  message("${messages}")
endif()
if(NOT result EQUAL 0)
  message(FATAL_ERROR "protoc failed: ${result}")
endif()

file(GLOB_RECURSE generated RELATIVE ${fresh} ${fresh}/*)
foreach(file ${generated})
  cmake_path(GET file PARENT_PATH folder)
  file(MAKE_DIRECTORY ${OUTPUT_DIR}/${folder})
  file(COPY_FILE ${fresh}/${file} ${OUTPUT_DIR}/${file} ONLY_IF_DIFFERENT)
endforeach()
file(COPY_FILE ${fresh}.desc ${DESCRIPTOR_SET} ONLY_IF_DIFFERENT)
file(REMOVE_RECURSE ${fresh} ${fresh}.desc)
