#ifndef SYS_UN_H
#define SYS_UN_H

/* A local socket address with the BSD layout: a length byte, and 104 bytes of path. */

struct sockaddr_un {
    unsigned char sun_len;
    unsigned char sun_family;
    char sun_path[104];
};

#endif
