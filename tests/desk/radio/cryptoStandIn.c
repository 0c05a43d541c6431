// Preloaded into the virtual controllers where the kernel has no AF_ALG sockets. They open some when they start, for
// the ciphers of pairing; these sockets can be opened and bound, and encrypt nothing. Where there are real ones, those
// are used.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <sys/socket.h>

int socket(int domain, int type, int protocol) {
    int (*const real)(int, int, int) = (int (*)(int, int, int))dlsym(RTLD_NEXT, "socket");
    const int descriptor = real(domain, type, protocol);
    return descriptor < 0 && domain == AF_ALG ? real(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0) : descriptor;
}

int bind(int descriptor, const struct sockaddr* address, socklen_t size) {
    int (*const real)(int, const struct sockaddr*, socklen_t) =
        (int (*)(int, const struct sockaddr*, socklen_t))dlsym(RTLD_NEXT, "bind");
    const int result = real(descriptor, address, size);
    return result < 0 && address->sa_family == AF_ALG ? 0 : result;
}
