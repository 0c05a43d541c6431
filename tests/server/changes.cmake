# Changes: from the messages of the CSI service and the marks of the model to the pushes of every client.
kz_add_test(
  changesTest
  SOURCES
  changesFixture.cpp
  playedQueues.cpp
  changesFanOutTest.cpp
  changesCsiTest.cpp
  LIBS
  kzFakes
  kzBleCore)
