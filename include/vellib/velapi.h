#ifndef VELLIB_VELAPI_H
#define VELLIB_VELAPI_H

/* velapi: what every public header of the library begins with. Nothing here is called. */

/* Marks an exported function or object; everything else in the library is hidden. */
#define VEL_API __attribute__((visibility("default")))

/* Lets the compiler check a format against its arguments. Both numbers count from 1, and
 * arguments is 0 where a va_list is taken. */
#define VEL_PRINTF(fmt, arguments) __attribute__((format(printf, fmt, arguments)))

/* Stand around the declarations of a header, which have the linkage of C in C++ too. */
#ifdef __cplusplus
#define VEL_DECLARATIONS_BEGIN extern "C" {
#define VEL_DECLARATIONS_END   }
#else
#define VEL_DECLARATIONS_BEGIN
#define VEL_DECLARATIONS_END
#endif

#endif
