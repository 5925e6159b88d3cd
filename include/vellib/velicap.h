#ifndef VELLIB_VELICAP_H
#define VELLIB_VELICAP_H

#include <stddef.h>

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velicap: an ICAP/1.0 client (RFC 3507). It hands an HTTP message to a service that inspects or
 * changes it, and keeps the answer. A context does one exchange at a time, each over a connection of
 * its own:
 *
 *     set the URL, once; then for each exchange a method and the parts of the message;
 *     vel_icap_perform; then read the status code, the headers and the body.
 *
 * Method, parts and body callback are dropped at the end of each perform. The URL, the time limit
 * and the permission of 204 stay.
 *
 * The client sends neither Preview nor Connection nor User-Agent, and joins no folded lines.
 *
 * Threads: one at a time, and one performs at a time in the whole process, even with contexts of
 * their own, as the text of the Encapsulated header is built in one buffer of the process.
 * Note: a server that closes a connection raises SIGPIPE in the next write to it, which ends the
 * process unless vel_signal_ignore_sigpipe was called.
 * Note: the whole request is written before the first byte of the answer is read. A service that
 * answers while it still receives may fill the buffers of both sides, and then only the time limit
 * ends the wait. */
typedef struct velicap velicap;

/* velicappart: one part of the HTTP message. Only the library sees it. */
typedef struct velicappart velicappart;

/* The parts of an HTTP message, in the order in which they are sent; the last is their number. */
#define VEL_ICAP_ENCAPSULATED_GEN_REQHDR   0
#define VEL_ICAP_ENCAPSULATED_GEN_RESHDR   1
#define VEL_ICAP_ENCAPSULATED_GEN_REQBODY  2
#define VEL_ICAP_ENCAPSULATED_GEN_RESBODY  3
#define VEL_ICAP_ENCAPSULATED_GEN_NUMTYPES 4

/* Gives the next piece of a body. Called during vel_icap_perform, until it returns 0.
 *
 * buffer  takes the piece.
 * size    the room in it in bytes: 4096.
 *
 * Returns the number of bytes put into buffer, or 0 for the end of the body.
 * Note: there is no way to report a failure, and more than size is taken at its word: the library
 * then reads behind the buffer. */
typedef size_t vel_icap_body_cb(void *buffer, size_t size, void *context);

VEL_DECLARATIONS_BEGIN

/* ---- Life ---- */

/* Creates a context without a URL and without a time limit.
 *
 * Returns the context, for vel_icap_destroy, or NULL if there is not enough memory, which is
 * logged. */
VEL_API velicap *vel_icap_create(void);

/* Destroys a context with all that it holds. */
VEL_API void vel_icap_destroy(velicap *velicap);

/* Forgets the method, the parts and the body callback, and of the last answer its raw ICAP headers,
 * its HTTP headers and its body. The URL, the time limit, the permission of 204 and the status code
 * stay. */
VEL_API void vel_icap_reset(velicap *velicap);

/* ---- The request ---- */

/* Sets the URL of the service, which is copied: icap://host[:port]/service for TCP, or
 * icap+unix://path/service for a UNIX-domain socket, whose path is percent-encoded so that it holds
 * neither "/" nor ":", as in icap+unix://%2Frun%2Fsvc.sock/reqmod.
 *
 * Returns VEL_ERROR_NONE, or VEL_ERROR_NO_MEMORY, logged, with no URL set.
 * Note: any other scheme goes by TCP as well. The process aborts by an assertion in
 * vel_icap_perform if the URL then has no port and its scheme no usual one, as with "ftp2://host/".
 * Note: a path is silently cut to what the platform's address of such a socket holds, which is 107
 * bytes on Linux.
 * Note: blanks and line feeds are not refused, and are sent: test a URL from outside. */
VEL_API vel_error_t vel_icap_set_url(velicap *velicap, const char *url);

/* Sets the limit of each whole vel_icap_perform; none by default.
 *
 * seconds       negative for no limit.
 * microseconds  below 1000000, or the next vel_icap_perform aborts.
 *
 * Note: neither the resolution of a name nor the connect to a UNIX-domain socket is limited, and
 * each wait of a write has all the time that was left when the request began. */
VEL_API void vel_icap_set_timeout(velicap *velicap, int seconds, unsigned int microseconds);

/* Sets the method REQMOD: the service sees a request on its way to a server. It takes request
 * headers, and a request body if there is one. */
VEL_API void vel_icap_set_method_reqmod(velicap *velicap);

/* Sets the method RESPMOD: the service sees a response on its way to a client. It takes response
 * headers, the headers of the request if they are known, and a response body if there is one. */
VEL_API void vel_icap_set_method_respmod(velicap *velicap);

/* Sets the method OPTIONS: the service tells what it can do. It takes no part. */
VEL_API void vel_icap_set_method_options(velicap *velicap);

/* Lets the service answer with 204 and nothing else when it would not change the message. There is
 * no way back. */
VEL_API void vel_icap_set_allow_204(velicap *velicap);

/* Sets the headers of the HTTP request, a copy of data.
 *
 * data  the request line and the headers up to and including the empty line, as they are to be
 *       sent. NULL only with a size of 0.
 * size  in bytes.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_INVALID_SYNTAX for a line without a colon behind the first;
 * VEL_ERROR_NO_MEMORY. A failure is logged, unless the memory for an empty header store was
 * missing.
 * Note: after VEL_ERROR_INVALID_SYNTAX the text is stored all the same and will be sent, but a
 * Transfer-Encoding in it goes unseen. */
VEL_API vel_error_t vel_icap_set_request_headers(velicap *velicap, const void *data, size_t size);

/* Sets the headers of the HTTP response, a copy of reshdr, in the way of
 * vel_icap_set_request_headers.
 *
 * size  in bytes, above 0. */
VEL_API vel_error_t vel_icap_set_response_headers(velicap *velicap, const void *reshdr,
                                                  size_t size);

/* Sets the body of the HTTP request, a copy of data. It is sent as one chunk; but if the headers of
 * the request announce a chunked transfer, it is taken to be in chunks already, and sent as it is.
 *
 * data  NULL only with a size of 0.
 * size  in bytes.
 *
 * Returns VEL_ERROR_NONE, or VEL_ERROR_NO_MEMORY, logged, with no body set.
 * Note: a body of size 0 that is to be sent as a chunk aborts the process in vel_icap_perform by an
 * assertion. Where there is no body, set none. */
VEL_API vel_error_t vel_icap_set_request_body(velicap *velicap, const void *data, size_t size);

/* Sets the body of the HTTP response, in the way of vel_icap_set_request_body; the headers of the
 * response decide how it is sent.
 *
 * data  is copied.
 * size  in bytes, above 0. */
VEL_API vel_error_t vel_icap_set_response_body(velicap *velicap, const void *data, size_t size);

/* Sets the function that gives the body, of the response with RESPMOD and of the request
 * otherwise. It goes before a request body that was set.
 *
 * callback  NULL for none.
 *
 * Note: every piece becomes a chunk, but the line end between two chunks is not sent, which servers
 * refuse: give the whole body in one piece, or announce a chunked transfer in the headers of the
 * request and give the body in chunks. With RESPMOD, too, it is the headers of the request that
 * decide. */
VEL_API void vel_icap_set_request_body_callback(velicap *velicap, vel_icap_body_cb *callback,
                                                void *context);

/* ---- The exchange ---- */

/* Connects, sends the request and reads the answer. Blocks until the answer is complete or the time
 * limit has passed.
 *
 * Returns VEL_ERROR_NONE when an answer was received, whatever its status code;
 * VEL_ERROR_INVALID_ARGUMENT without a method or a URL, or for a URL that cannot be parsed;
 * VEL_ERROR_INVALID_SYNTAX for a badly encoded path of a socket; VEL_ERROR_TIMED_OUT;
 * VEL_ERROR_PROTOCOL for an answer that is not understood, or if the parts set do not fit the
 * method, which is found after connecting; VEL_ERROR_MESSAGE_TOO_LONG for a line of more than 4096
 * bytes; VEL_ERROR_UNSUPPORTED if something stands before the HTTP headers of the answer;
 * VEL_ERROR_GENERIC if the UNIX-domain socket cannot be connected to; VEL_ERROR_END_OF_FILE if the
 * server closes early; VEL_ERROR_NO_MEMORY; or what the transport says. A failure is logged. What
 * had come in before it can be read.
 * Note: any status but 204 needs an Encapsulated header, which servers leave out of some refusals:
 * these end with VEL_ERROR_PROTOCOL. The status code can be read then, too.
 * Note: HTTP headers of the answer that end early are not noticed if the answer says that there is
 * no body. */
VEL_API vel_error_t vel_icap_perform(velicap *velicap);

/* ---- The answer ---- */

/* Gives the ICAP status code of the last answer; 0 if there was none. It outlives a failed perform
 * that got none, and vel_icap_reset. */
VEL_API unsigned int vel_icap_get_status_code(velicap *velicap);

/* Copies the ICAP headers as they were received, without the status line and with the empty line.
 *
 * Returns VEL_ERROR_NONE, VEL_ERROR_INVALID_ARGUMENT if there are none, or VEL_ERROR_NO_MEMORY. A
 * failure is logged.
 * Note: the headers of each further perform are added to those that are there. Call vel_icap_reset
 * before a perform to have its own alone. */
VEL_API vel_error_t vel_icap_get_response_icap_headers(velicap *velicap, char **headersptr);

/* Copies the headers of the HTTP message in the answer, with their first line.
 *
 * Returns VEL_ERROR_NONE, VEL_ERROR_INVALID_ARGUMENT if there are none, as with status 204, or
 * VEL_ERROR_NO_MEMORY. A failure is logged. */
VEL_API vel_error_t vel_icap_get_response_headers(velicap *velicap, char **headersptr);

/* Copies the body of the HTTP message in the answer, or the body of an answer to OPTIONS, without a
 * terminator.
 *
 * Returns VEL_ERROR_NONE, VEL_ERROR_INVALID_ARGUMENT if there is none, as with status 204, or
 * VEL_ERROR_NO_MEMORY. A failure is logged.
 * Note: if the headers of the message that was sent announced a chunked transfer, the body is in
 * chunks, too, and ends in two last chunks instead of one. */
VEL_API vel_error_t vel_icap_get_response_body_and_size(velicap *velicap, char **bodyptr,
                                                        size_t *sizeptr);

/* ---- What the request is made of ---- */

/* Builds the value of the Encapsulated header from the parts set so far, such as
 * "req-hdr=0, req-body=137".
 *
 * Returns a text in a buffer of the process, valid until the next call for any context, of which
 * vel_icap_perform does one. It aborts if both bodies are set.
 * Threads: one at a time in the whole process. */
VEL_API const char *vel_icap_build_encapsulated_header(velicap *velicap);

/* Tells whether the body of a kind is in chunks already, by the headers of the message that it
 * belongs to.
 *
 * kind   VEL_ICAP_ENCAPSULATED_GEN_REQBODY or _RESBODY; all others are not.
 * value  receives 1 or 0.
 *
 * Returns VEL_ERROR_NONE, or VEL_ERROR_NO_MEMORY, which is not logged. */
VEL_API vel_error_t vel_icap_part_is_chunk_encoded(velicap *velicap, unsigned int kind, int *value);

/* Tells whether the headers of a part announce a chunked transfer.
 *
 * part   one of the library's own.
 * value  receives 1 or 0.
 *
 * Returns VEL_ERROR_NONE, or VEL_ERROR_NO_MEMORY, which is not logged. */
VEL_API vel_error_t vel_icap_http_part_has_chunked_transfer(velicappart *part, int *value);

VEL_DECLARATIONS_END

#endif
