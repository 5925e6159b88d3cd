#ifndef VELLIB_NET_VELICAP_INTERNAL_H
#define VELLIB_NET_VELICAP_INTERNAL_H

/* What the sources of net/velicap share. From the ground up: velicap.cpp has life and the setters,
 * velicap_encapsulated.cpp what a message may be made of, velicap_send.cpp the request,
 * velicap_receive.cpp the steps of the answer, velicap_get.cpp its getters, velicap_unix.cpp the
 * UNIX-domain transport, and velicap_perform.cpp the exchange. All of them log as net/velicap. */

#include <stddef.h>
#include <stdint.h>

#include <vellib/velhandle.h>
#include <vellib/velhttpheaders.h>
#include <vellib/velicap.h>
#include <vellib/veltimeout.h>

/* A line of the answer may be this long, and so may a piece of what is read or streamed. */
constexpr size_t kVelIcapBufferSize = 4096;

enum vel_icap_method : unsigned int {
    VEL_ICAP_METHOD_NONE = 0,
    VEL_ICAP_METHOD_REQMOD = 1,
    VEL_ICAP_METHOD_RESPMOD = 2,
    VEL_ICAP_METHOD_OPTIONS = 3,
};

/* A part of the HTTP message to send. */
struct velicappart {
    char *data;                     /* owned; with a NUL behind it. NULL if the part is not set */
    uint64_t size;                  /* of data, without the NUL */
    struct velhttpheaders *headers; /* owned; of the two kinds that are headers */
};

struct velicap {
    char *buffer; /* owned; every line and piece of the answer passes through it */
    uint64_t bufferlen;
    struct veltimeout *veltimeout; /* owned; the countdown of one perform */
    int32_t timeoutseconds;        /* the limit of a perform; negative is none */
    uint32_t timeoutmicroseconds;
    char *url;       /* owned; of the service */
    uint32_t method; /* a vel_icap_method */
    vel_icap_body_cb *requestbodycallback;
    void *requestbodycontext;
    uint32_t allow204;
    velicappart encapsulated[VEL_ICAP_ENCAPSULATED_GEN_NUMTYPES];
    struct velhandle *velhandle; /* owned; the connection of a perform, else NULL */

    uint32_t statuscode; /* from here on the answer */
    char *rawheaders;    /* owned; the lines of the ICAP headers as they came */
    uint64_t rawheaderslen;
    struct velhttpheaders *responseheaders; /* owned; the same by name */
    uint64_t headeroffset;                  /* of the encapsulated HTTP headers */
    uint64_t bodyoffset;                    /* of the encapsulated body, or of the end */
    uint32_t hasbody;                       /* 1: a body in chunks follows the headers */
    char *responseheader;                   /* owned; the encapsulated HTTP headers */
    uint64_t responseheaderlen;
    char *responsedata;            /* owned; the encapsulated body */
    uint64_t responsedatalen;      /* bytes handed out to readers, always the bytes stored */
    uint64_t responsedatacapacity; /* bytes allocated */
    uint64_t responsedatapos;      /* bytes stored */
};

/* velicap.cpp */

/* Stores a copy of a part, and for the headers of a message what they say. */
vel_error_t vel_icap_set_encapsulated_part(struct velicap *velicap, unsigned int kind,
                                           const void *data, uint64_t size);
/* Closes the connection and forgets what a perform uses up. */
void vel_icap_reset_options(struct velicap *velicap);
/* Frees the encapsulated headers and body of the answer. */
void vel_icap_free_response(struct velicap *velicap);

/* velicap_encapsulated.cpp */

/* The method as it stands on the wire; NULL for none of the three. */
const char *vel_icap_method_name(unsigned int method);
/* Tells whether the parts set fit the method, and logs what does not: VEL_ERROR_PROTOCOL. */
vel_error_t vel_icap_check_parts(struct velicap *velicap);
/* Reads from the Encapsulated header of the answer where headers and body of the message begin. A
 * failure is logged, but for words that are unknown, repeated or out of order. */
vel_error_t vel_icap_parse_encapsulated_header(struct velicap *velicap, const char *encapsulated);

/* velicap_send.cpp */

/* Writes the request to the connection. host and port are for the Host header; no port with 0. */
vel_error_t vel_icap_send_request(struct velicap *velicap, const char *method, const char *url,
                                  const char *host, unsigned int port);
vel_error_t vel_icap_send_encapsulated_parts(struct velicap *velicap);
vel_error_t vel_icap_send_encapsulated_part(struct velicap *velicap, unsigned int i);
vel_error_t vel_icap_send_chunk(struct velhandle *handle, const void *chunkdata, uint64_t chunklen);
vel_error_t vel_icap_send_chunk_end(struct velhandle *handle);

/* velicap_receive.cpp: the steps of an answer, in this order. */
vel_error_t vel_icap_read_status_code(struct velicap *velicap);
vel_error_t vel_icap_read_icap_headers(struct velicap *velicap);
/* Reads size bytes, or fewer if the connection ends, into responsedata. */
vel_error_t vel_icap_read_encapsulated_headers(struct velicap *velicap, uint64_t size);
vel_error_t vel_icap_read_body_chunked(struct velicap *velicap);
/* Appends to responsedata. */
vel_error_t vel_icap_store_in_memory(struct velicap *velicap, const void *data, uint64_t size);

/* velicap_unix.cpp */

vel_error_t vel_icap_connect_unix_domain_socket(struct velicap *velicap, const char *escapedpath);
/* Decodes a percent-encoded path into a new string. */
vel_error_t vel_icap_unescape_socket_path(char **destptr, const char *src);
/* Decodes into room for *destlenptr bytes, and tells there how many the text has, its NUL included.
 * VEL_ERROR_INCOMPLETE if that is more than there is room for. */
vel_error_t vel_icap_unescape_buffer(char *dest, uint64_t *destlenptr, const char *src);

/* velicap_perform.cpp */

vel_error_t vel_icap_connect_tcp(struct velicap *velicap, const char *host, unsigned int port);
/* The method as it stands on the wire; logs if there is none, and gives NULL. */
const char *vel_icap_get_method(struct velicap *velicap);

/* velicap.cpp: the countdown of the perform, as vel_timeout_check has it: 1 is expired. */
int vel_icap_timeout_check(struct velicap *velicap, int *secondsptr, unsigned int *microsecondsptr);
/* The same, with a line for the log: VEL_ERROR_TIMED_OUT, or VEL_ERROR_NONE with the time left. */
vel_error_t vel_icap_check_time(struct velicap *velicap, int *secondsptr,
                                unsigned int *microsecondsptr);

#endif
