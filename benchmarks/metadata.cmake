add_executable(metadataBench ${CMAKE_CURRENT_SOURCE_DIR}/metadataBench.cpp)
target_link_libraries(metadataBench PRIVATE kzOptions kzMetadata)
