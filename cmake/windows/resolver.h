/* For ftplib's sources, included in front of them. ftplib asks for the re-entrant resolver calls of POSIX, which Windows
   does not have; its plain ones keep their result in storage of the calling thread, so they are re-entrant already. */
#pragma once

#include <stddef.h>
#include <winsock2.h>

static inline int getservbyname_r(const char* name, const char* protocol, struct servent* entry, char* buffer,
                                  size_t size, struct servent** result) {
    (void)entry;
    (void)buffer;
    (void)size;
    *result = getservbyname(name, protocol);
    return *result == NULL ? WSAGetLastError() : 0;
}

static inline int gethostbyname_r(const char* name, struct hostent* entry, char* buffer, size_t size,
                                  struct hostent** result, int* error) {
    (void)entry;
    (void)buffer;
    (void)size;
    *result = gethostbyname(name);
    *error = *result == NULL ? WSAGetLastError() : 0;
    return *error;
}

static inline const char* hstrerror(int error) {
    return error == WSAHOST_NOT_FOUND ? "Unknown host" : "Host name lookup failure";
}

/* The library becomes a part of Korvane.dll, which shall not pass its functions on. */
#define dllexport
