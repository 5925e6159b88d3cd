#ifndef VELLIB_VELERROR_H
#define VELLIB_VELERROR_H

#include <vellib/velapi.h>

/* velerror: the result codes of the library and their texts. The numbers up to 125 are those of
 * Linux's errno, on every platform; from 200 upwards they are the library's own. They never
 * change, so a program may store them.
 * Threads: any, at any time. */

/* A result code: VEL_ERROR_NONE, or one of the codes below. */
typedef int vel_error_t;

/* The result codes. */
enum {
    VEL_ERROR_NONE = 0,                      /* success */
    VEL_ERROR_PERMISSION = 1,                /* operation not permitted */
    VEL_ERROR_INTERRUPTED = 4,               /* interrupted system call */
    VEL_ERROR_IO = 5,                        /* input/output error */
    VEL_ERROR_WOULD_BLOCK = 11,              /* would block */
    VEL_ERROR_NO_MEMORY = 12,                /* not enough memory */
    VEL_ERROR_ACCESS = 13,                   /* permission denied */
    VEL_ERROR_BAD_ADDRESS = 14,              /* bad address */
    VEL_ERROR_EXISTS = 17,                   /* item already exists */
    VEL_ERROR_CROSS_DEVICE = 18,             /* cross device link */
    VEL_ERROR_NOT_DIRECTORY = 20,            /* not a directory */
    VEL_ERROR_INVALID_ARGUMENT = 22,         /* invalid argument */
    VEL_ERROR_NO_SPACE = 28,                 /* no space left on device */
    VEL_ERROR_READ_ONLY = 30,                /* read-only file system */
    VEL_ERROR_TOO_MANY_LINKS = 31,           /* too many links */
    VEL_ERROR_BROKEN_PIPE = 32,              /* broken pipe */
    VEL_ERROR_OUT_OF_RANGE = 34,             /* out of range */
    VEL_ERROR_NAME_TOO_LONG = 36,            /* name is too long */
    VEL_ERROR_NOT_IMPLEMENTED = 38,          /* function not implemented */
    VEL_ERROR_SYMLINK_LOOP = 40,             /* too many symbolic links */
    VEL_ERROR_TIMER_EXPIRED = 62,            /* timer expired */
    VEL_ERROR_PROTOCOL = 71,                 /* protocol error */
    VEL_ERROR_MESSAGE_TOO_LONG = 90,         /* message too long */
    VEL_ERROR_ADDRESS_IN_USE = 98,           /* address already in use */
    VEL_ERROR_NETWORK_UNREACHABLE = 101,     /* network unreachable */
    VEL_ERROR_CONNECTION_RESET = 104,        /* connection reset by peer */
    VEL_ERROR_CONNECTION_TIMED_OUT = 110,    /* connection timed out */
    VEL_ERROR_CONNECTION_REFUSED = 111,      /* connection refused */
    VEL_ERROR_IN_PROGRESS = 115,             /* operation in progress */
    VEL_ERROR_QUOTA = 122,                   /* quota exceeded */
    VEL_ERROR_CANCELED = 125,                /* operation canceled */
    VEL_ERROR_CANNOT_CONNECT = 200,          /* cannot connect */
    VEL_ERROR_TIMED_OUT = 201,               /* timed out */
    VEL_ERROR_GENERIC = 202,                 /* generic error */
    VEL_ERROR_WRITE = 203,                   /* write error */
    VEL_ERROR_END_OF_FILE = 204,             /* end of file */
    VEL_ERROR_UNSUPPORTED = 205,             /* unsupported operation */
    VEL_ERROR_BUSY = 206,                    /* resource is busy */
    VEL_ERROR_NOT_FOUND = 207,               /* item not found */
    VEL_ERROR_INTERNAL = 208,                /* internal error */
    VEL_ERROR_INVALID_SYNTAX = 209,          /* invalid syntax */
    VEL_ERROR_HOST_UNRESOLVED = 210,         /* unable to resolve host */
    VEL_ERROR_SERVER = 211,                  /* server returned an error */
    VEL_ERROR_BAD_HANDLE = 212,              /* bad handle */
    VEL_ERROR_WAKEUP = 213,                  /* wakeup requested */
    VEL_ERROR_INCOMPLETE = 214,              /* operation incomplete */
    VEL_ERROR_IDENTIFIER_MISMATCH = 215,     /* identifier mismatch */
    VEL_ERROR_UNTRUSTED_ROOT_CA = 216,       /* untrusted root ca */
    VEL_ERROR_NO_ADDRESSES_IN_FAMILY = 217,  /* no addresses in family */
    VEL_ERROR_TEMPORARY_FAILURE = 218,       /* temporary failure */
    VEL_ERROR_PERMANENT_FAILURE = 219,       /* permanent failure */
    VEL_ERROR_SELF_SIGNED_CERTIFICATE = 220, /* self-signed certificate */
    VEL_ERROR_CERTIFICATE_EXPIRED = 221,     /* certificate expired */
};

/* Lies above every code that the library gives; not a code itself. */
#define VEL_ERROR_COUNT 224

VEL_DECLARATIONS_BEGIN

/* Gives the text of a result code.
 *
 * error  a code, or any other number.
 *
 * Returns a constant text that is never NULL and never freed; "unknown error" for a number that
 * has none. */
VEL_API const char *vel_error_string(int error);

VEL_DECLARATIONS_END

#endif
