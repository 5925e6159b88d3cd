#include <vellib/velerror.h>

struct vel_error_record {
    int code;
    const char *text;
};

/* In ascending order for the reader; the lookup does not depend on it. */
static constexpr vel_error_record vel_error_table[] = {
    {VEL_ERROR_NONE, "success"},
    {VEL_ERROR_PERMISSION, "operation not permitted"},
    {VEL_ERROR_INTERRUPTED, "interrupted system call"},
    {VEL_ERROR_IO, "input/output error"},
    {VEL_ERROR_WOULD_BLOCK, "would block"},
    {VEL_ERROR_NO_MEMORY, "not enough memory"},
    {VEL_ERROR_ACCESS, "permission denied"},
    {VEL_ERROR_BAD_ADDRESS, "bad address"},
    {VEL_ERROR_EXISTS, "item already exists"},
    {VEL_ERROR_CROSS_DEVICE, "cross device link"},
    {VEL_ERROR_NOT_DIRECTORY, "not a directory"},
    {VEL_ERROR_INVALID_ARGUMENT, "invalid argument"},
    {VEL_ERROR_NO_SPACE, "no space left on device"},
    {VEL_ERROR_READ_ONLY, "read-only file system"},
    {VEL_ERROR_TOO_MANY_LINKS, "too many links"},
    {VEL_ERROR_BROKEN_PIPE, "broken pipe"},
    {VEL_ERROR_OUT_OF_RANGE, "out of range"},
    {VEL_ERROR_NAME_TOO_LONG, "name is too long"},
    {VEL_ERROR_NOT_IMPLEMENTED, "function not implemented"},
    {VEL_ERROR_SYMLINK_LOOP, "too many symbolic links"},
    {VEL_ERROR_TIMER_EXPIRED, "timer expired"},
    {VEL_ERROR_PROTOCOL, "protocol error"},
    {VEL_ERROR_MESSAGE_TOO_LONG, "message too long"},
    {VEL_ERROR_ADDRESS_IN_USE, "address already in use"},
    {VEL_ERROR_NETWORK_UNREACHABLE, "network unreachable"},
    {VEL_ERROR_CONNECTION_RESET, "connection reset by peer"},
    {VEL_ERROR_CONNECTION_TIMED_OUT, "connection timed out"},
    {VEL_ERROR_CONNECTION_REFUSED, "connection refused"},
    {VEL_ERROR_IN_PROGRESS, "operation in progress"},
    {VEL_ERROR_QUOTA, "quota exceeded"},
    {VEL_ERROR_CANCELED, "operation canceled"},
    {VEL_ERROR_CANNOT_CONNECT, "cannot connect"},
    {VEL_ERROR_TIMED_OUT, "timed out"},
    {VEL_ERROR_GENERIC, "generic error"},
    {VEL_ERROR_WRITE, "write error"},
    {VEL_ERROR_END_OF_FILE, "end of file"},
    {VEL_ERROR_UNSUPPORTED, "unsupported operation"},
    {VEL_ERROR_BUSY, "resource is busy"},
    {VEL_ERROR_NOT_FOUND, "item not found"},
    {VEL_ERROR_INTERNAL, "internal error"},
    {VEL_ERROR_INVALID_SYNTAX, "invalid syntax"},
    {VEL_ERROR_HOST_UNRESOLVED, "unable to resolve host"},
    {VEL_ERROR_SERVER, "server returned an error"},
    {VEL_ERROR_BAD_HANDLE, "bad handle"},
    {VEL_ERROR_WAKEUP, "wakeup requested"},
    {VEL_ERROR_INCOMPLETE, "operation incomplete"},
    {VEL_ERROR_IDENTIFIER_MISMATCH, "identifier mismatch"},
    {VEL_ERROR_UNTRUSTED_ROOT_CA, "untrusted root ca"},
    {VEL_ERROR_NO_ADDRESSES_IN_FAMILY, "no addresses in family"},
    {VEL_ERROR_TEMPORARY_FAILURE, "temporary failure"},
    {VEL_ERROR_PERMANENT_FAILURE, "permanent failure"},
    {VEL_ERROR_SELF_SIGNED_CERTIFICATE, "self-signed certificate"},
    {VEL_ERROR_CERTIFICATE_EXPIRED, "certificate expired"},
    {0, nullptr},
};

const char *vel_error_string(int error)
{
    for (const vel_error_record *record = vel_error_table; record->text; record++) {
        if (record->code == error)
            return record->text;
    }
    return "unknown error";
}
