# Runs protoc over SCHEMA_FILES (relative to SCHEMA_DIR). The schemas carry no syntax statement on purpose: protoc's remark
# about that, one line a file, is left out; everything else it says is shown.
file(MAKE_DIRECTORY ${OUTPUT_DIR})
execute_process(
  COMMAND ${PROTOC} -I. --cpp_out=${OUTPUT_DIR} ${SCHEMA_FILES}
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
