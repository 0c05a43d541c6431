# Queries and pushes: what a client may ask, and what it is told.
kz_add_test(
  queryTest
  SOURCES
  queryMessageTest.cpp
  queryProtobufTest.cpp
  queryPushTest.cpp
  queryFeaturePushTest.cpp
  LIBS
  kzFakes
  kzBleServer)
