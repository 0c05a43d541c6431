// Standard input, output and error as the daemon finds them at its start, made harmless.
#pragma once

// Opens those that are closed on /dev/null, so that no queue or file of the daemon gets their numbers. Makes writing to
// standard error never wait: where it is a pipe, a terminal or a socket that nobody reads, the text is lost instead.
// The log, the C library and the protobuf library write there. To be called first.
void SecureStandardStreams();
