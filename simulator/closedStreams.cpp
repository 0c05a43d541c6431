#include "closedStreams.h"

#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>

namespace kzsim {

void occupyClosedStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) == -1) {
            open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);  // gets the lowest free number, this one
        }
    }
}

}  // namespace kzsim
