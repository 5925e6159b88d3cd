#ifndef VELLIB_VELPEM2DER_H
#define VELLIB_VELPEM2DER_H

#include <stddef.h>

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velpem2der: the certificates of a PEM buffer (RFC 7468, section 5), one after another, as DER
 * bytes. Only the label "CERTIFICATE" counts; other blocks and text between certificates are
 * skipped.
 * Threads: one at a time. */
typedef struct velpem2der velpem2der;

VEL_DECLARATIONS_BEGIN

/* Creates a reader over a copy of a buffer.
 *
 * pembuffer  the text, which may hold any byte.
 * len        its length in bytes.
 * errorptr   receives VEL_ERROR_NONE; VEL_ERROR_NOT_FOUND if no certificate begins in the buffer,
 *            which is logged as a detail; or VEL_ERROR_NO_MEMORY, which is logged. May be NULL.
 *
 * Returns the reader, for vel_pem2der_destroy, or NULL. */
VEL_API velpem2der *vel_pem2der_create(const void *pembuffer, size_t len, vel_error_t *errorptr);

/* Destroys a reader. NULL is not accepted. Blocks that it delivered stay. */
VEL_API void vel_pem2der_destroy(velpem2der *velpem2der);

/* Delivers the next certificate.
 *
 * bufferptr  receives a new block with the DER bytes. A NUL stands behind them.
 * buflenptr  receives their number, without that NUL.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_END_OF_FILE if no further certificate begins;
 * VEL_ERROR_INCOMPLETE if one begins and does not end; or what vel_base64_decode returns for its
 * text, which is logged.
 *
 * Note: a certificate that cannot be delivered is not passed over. Every further call gives the
 * same answer, and those behind it are out of reach. */
VEL_API vel_error_t vel_pem2der_next(velpem2der *velpem2der, void **bufferptr, size_t *buflenptr);

VEL_DECLARATIONS_END

#endif
