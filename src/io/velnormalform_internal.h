#ifndef VELLIB_IO_VELNORMALFORM_INTERNAL_H
#define VELLIB_IO_VELNORMALFORM_INTERNAL_H

#include <cstddef>

/* Converts UTF-8 to Normalization Form C (UAX #15). What is not valid UTF-8 is copied as it is.
 *
 * len        of utf8 in bytes.
 * dest       receives the text, without a NUL; it must not overlap utf8.
 * room       of dest in bytes.
 * lengthptr  receives the length in bytes.
 *
 * Returns false, with 0 written, if the room is not enough, or there is not enough memory for a text
 * beyond the length of a file name. */
bool vel_normalform_compose(const char *utf8, size_t len, char *dest, size_t room,
                            size_t *lengthptr);

#endif
