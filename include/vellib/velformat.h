#ifndef VELLIB_VELFORMAT_H
#define VELLIB_VELFORMAT_H

#include <vellib/velapi.h>

/* velformat: templates with named variables.
 * Threads: any. */

VEL_DECLARATIONS_BEGIN

/* Puts the values of variables in the places of their names.
 *
 * format  the template. A name between two "%" stands for the value of that variable; "%%" stands
 *         for "%"; everything else is copied. Nothing else is special, so "%s" is the start of a
 *         variable whose end is missing.
 * ...     pairs of a name and a value, both const char *, and a NULL of the type char * behind the
 *         last. Case matters in names; of pairs with the same name the first counts. Values are
 *         not looked at for variables.
 *
 * A variable without a pair expands to nothing, and one without its second "%" is copied as it
 * stands; both are logged.
 *
 * Returns a new string, or NULL, logged, if there is not enough memory or if a variable is looked up
 * that does not match in front of a pair whose value is NULL.
 * Note: a format that ends in a single "%" that opens a variable aborts. */
VEL_API char *vel_format(const char *format, ...) __attribute__((sentinel));

VEL_DECLARATIONS_END

#endif
