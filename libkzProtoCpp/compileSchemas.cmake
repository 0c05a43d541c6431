# Runs protoc over SCHEMA_FILES (relative to SCHEMA_DIR): C++ code into OUTPUT_DIR, and all schemas as one descriptor set into
# DESCRIPTOR_SET, for programs that read them at run time. The schemas carry no syntax statement on purpose: protoc's remark
# about that, one line a file, is left out; everything else it says is shown.
file(MAKE_DIRECTORY ${OUTPUT_DIR})
execute_process(
  COMMAND ${PROTOC} -I. --cpp_out=${OUTPUT_DIR} --descriptor_set_out=${DESCRIPTOR_SET} --include_imports ${SCHEMA_FILES}
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
