#ifndef VELLIB_NET_VELRESPONSEDATA_CORE_H
#define VELLIB_NET_VELRESPONSEDATA_CORE_H

/* The body of a response in memory, as the HTTP and the ICAP client gather it. An owner has the
 * fields responsedata, responsedatalen, responsedatacapacity and responsedatapos. The size that a
 * reader gets is responsedatalen, always the bytes stored. */

#include <stddef.h>
#include <stdint.h>

#include <vellib/velmalloc.h>

/* Makes room for size more bytes. The capacity doubles, so that a large body is not copied for each
 * of its pieces; where there is no memory for that, what is needed will do. */
template <typename Owner> static bool vel_responsecore_reserve(Owner *owner, size_t size)
{
    if (size > SIZE_MAX - owner->responsedatapos)
        return false;
    const size_t needed = owner->responsedatapos + size;
    if (owner->responsedata && needed <= owner->responsedatacapacity)
        return true;

    size_t capacity = needed;
    char *data = nullptr;
    if (!owner->responsedata) {
        data = static_cast<char *>(vel_malloc(capacity));
    } else {
        if (owner->responsedatacapacity <= SIZE_MAX / 2 &&
            owner->responsedatacapacity * 2 > capacity)
            capacity = owner->responsedatacapacity * 2;
        data = static_cast<char *>(vel_realloc(owner->responsedata, capacity));
        if (!data && capacity > needed) {
            capacity = needed;
            data = static_cast<char *>(vel_realloc(owner->responsedata, capacity));
        }
    }
    if (!data)
        return false;
    owner->responsedata = data;
    owner->responsedatacapacity = capacity;
    return true;
}

#endif
