#ifndef VELLIB_IO_VELUTF8DIR_INTERNAL_H
#define VELLIB_IO_VELUTF8DIR_INTERNAL_H

/* Converts a name to Normalization Form C.
 *
 * Returns a new string, or NULL, logged, if there is not enough memory or the name would take more
 * bytes than before. What is not valid UTF-8 comes out as it is. */
char *vel_utf8dir_nfd_to_nfc(const char *nfd);

#endif
