#ifndef VELLIB_VELHTTP_H
#define VELLIB_VELHTTP_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velhttp: an HTTP client without a transport. It keeps the request, the response, the time limits
 * and the progress, follows redirects, and leaves the wire to a backend, whose constructor makes
 * the context (vel_http_lite_create).
 *
 * There is always one prepared request, which the setters fill. vel_http_perform makes it the
 * active request, too, and leaves it so: the response stays readable, and another perform repeats
 * the request, without the headers that were added. vel_http_perform_async gives the request away
 * and prepares a fresh one with default settings. The getters of results read the active request;
 * where there is none yet, they log "no active request set" at level 6 and return what stands for
 * nothing.
 *
 * Threads: one at a time, but for vel_http_abort.
 * Note: a peer that closes a connection raises SIGPIPE in the next write to it, which ends the
 * process unless vel_signal_ignore_sigpipe was called. */
typedef struct velhttp velhttp;

/* velhttprequest: one request with its response. Only backends see it. */
typedef struct velhttprequest velhttprequest;

/* velhttpdeprecated: settings of a request that only older programs use. */
typedef struct velhttpdeprecated velhttpdeprecated;

/* Creates a context that performs its requests by one backend.
 *
 * Returns it, or NULL if there is not enough memory. */
typedef velhttp *vel_http_create_cb(void);

/* Chooses the proxy of one pass by a call of vel_http_set_proxy or vel_http_set_proxy_with_auth,
 * which then set that of the active request.
 *
 * scheme, host, port  where the pass is going to; the texts are valid during the call.
 *
 * Returns VEL_ERROR_NONE, or a code that ends the transfer and becomes its result. */
typedef vel_error_t vel_http_proxy_cb(velhttp *velhttp, const char *scheme, const char *host,
                                      unsigned int port, void *context);

/* Takes a piece of the response body as it comes in.
 *
 * data  the piece, valid during the call.
 * size  its length in bytes, above 0.
 *
 * Returns VEL_ERROR_NONE, or a code that ends the transfer and becomes its result. */
typedef vel_error_t vel_http_body_cb(const void *data, size_t size, void *context);

/* Learns how far a transfer got; called about once a second, and at its beginning and end.
 *
 * current  bytes so far.
 * total    bytes in all, or -1 if unknown.
 *
 * Returns 0, or any other number to abort the transfer. */
typedef int vel_http_progress_cb(int64_t current, int64_t total, void *context);

/* Learns that an asynchronous transfer has ended. The response can be read within the call only. */
typedef void vel_http_completion_cb(velhttp *velhttp, vel_error_t result, void *context);

/* Releases what a backend keeps. context is that of vel_http_set_context. */
typedef void vel_http_destroy_cb(void *context);

/* Drops the connection and the state of a transfer that a backend keeps. The result becomes that of
 * vel_http_reset. */
typedef vel_error_t vel_http_reset_cb(velhttp *velhttp);

/* Gives a backend the URL of the next transfer, which it copies. Nothing else tells it the path. A
 * code other than VEL_ERROR_NONE becomes the result of vel_http_set_url. */
typedef vel_error_t vel_http_url_cb(velhttp *velhttp, const char *url);

/* Does one exchange of request and response, by the functions for backends below. Returns
 * VEL_ERROR_NONE when it is complete, whatever its status code. */
typedef vel_error_t vel_http_perform_cb(velhttp *velhttp);

/* Starts a transfer.
 *
 * request   the request, which is the backend's from a result other than NULL on: it then ends with
 *           vel_http_complete_request, not before this call has returned.
 * errorptr  is to receive the cause of a failure.
 *
 * Returns anything but NULL, or NULL if the transfer has not started. */
typedef void *vel_http_perform_async_cb(velhttp *velhttp, velhttprequest *request,
                                        vel_error_t *errorptr);

VEL_DECLARATIONS_BEGIN

/* Destroys a context with its requests and its backend. */
VEL_API void vel_http_destroy(velhttp *velhttp);

/* Makes the prepared request a plain GET without URL, added headers, body, body callback, progress
 * callbacks, status and response body. Proxy, time limits, CA settings and response headers stay.
 *
 * Returns what the backend says, or VEL_ERROR_NONE.
 * Note: a backend may keep its copy of the URL, as that of vel_http_lite_create does: a perform
 * without a new URL then goes to the old address. */
VEL_API vel_error_t vel_http_reset(velhttp *velhttp);

/* Stores a value of the program for an asynchronous backend. */
VEL_API void vel_http_set_async_context(velhttp *velhttp, void *asynccontext);

/* Gives the value of vel_http_set_async_context, or NULL. */
VEL_API void *vel_http_get_async_context(velhttp *velhttp);

/* Sets the URL.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_UNSUPPORTED if the backend takes no URLs; what the backend
 * says; VEL_ERROR_INVALID_ARGUMENT for a URL with fewer than two slashes, or VEL_ERROR_NO_MEMORY,
 * both when the backend has already taken the URL. A failure is logged, but for that of the
 * backend.
 * Note: blanks and line feeds in it are not refused, and the backend of vel_http_lite_create sends
 * them: test a URL from outside. */
VEL_API vel_error_t vel_http_set_url(velhttp *velhttp, const char *url);

/* Sets the method.
 *
 * method  any word; it is sent unchecked. GET, POST, PUT and DELETE, in capitals, do what the four
 *         functions below do.
 *
 * Returns VEL_ERROR_NONE, or VEL_ERROR_NO_MEMORY, logged, with no method set. */
VEL_API vel_error_t vel_http_set_method(velhttp *velhttp, const char *method);

/* Sets the method GET, which is the default. */
VEL_API void vel_http_set_method_get(velhttp *velhttp);

/* Sets the method POST. */
VEL_API void vel_http_set_method_post(velhttp *velhttp);

/* Sets the method PUT. */
VEL_API void vel_http_set_method_put(velhttp *velhttp);

/* Sets the method DELETE. */
VEL_API void vel_http_set_method_delete(velhttp *velhttp);

/* Adds a header to the next transfer, behind those added before.
 *
 * header  the whole line "Name: value" without its end. It is sent as it stands, unchecked.
 *
 * Returns VEL_ERROR_NONE, or VEL_ERROR_NO_MEMORY, logged.
 * Note: a perform removes all headers at its end. */
VEL_API vel_error_t vel_http_add_header(velhttp *velhttp, const char *header);

/* Sets the body of the request, a copy of data. It stays for all transfers until vel_http_reset.
 *
 * data  the body; not NULL, even if size is 0.
 * size  its length in bytes.
 *
 * Returns VEL_ERROR_NONE, or VEL_ERROR_NO_MEMORY, logged, with the earlier body in place. */
VEL_API vel_error_t vel_http_set_request_body(velhttp *velhttp, const void *data, size_t size);

/* Sets the proxy, without a user.
 *
 * hostname  is copied. NULL for no proxy.
 * port      1 to 65535.
 *
 * Returns VEL_ERROR_NONE, or VEL_ERROR_NO_MEMORY, logged, with the earlier proxy in place but its
 * user and password forgotten. */
VEL_API vel_error_t vel_http_set_proxy(velhttp *velhttp, const char *hostname, unsigned int port);

/* Sets the proxy and the user to name when it asks for authentication.
 *
 * hostname  is copied. NULL for no proxy.
 * port      1 to 65535.
 * user      is copied. Empty for none.
 * password  is copied. NULL means empty.
 *
 * Returns what vel_http_set_proxy returns. */
VEL_API vel_error_t vel_http_set_proxy_with_auth(velhttp *velhttp, const char *hostname,
                                                 unsigned int port, const char *user,
                                                 const char *password);

/* Sets the function that chooses the proxy anew for each pass; NULL for none. */
VEL_API void vel_http_set_proxy_callback(velhttp *velhttp, vel_http_proxy_cb *callback,
                                         void *context);

/* Sets the limit of a whole transfer with its redirects; infinite by default. The time starts
 * again with each perform.
 *
 * seconds       negative for no limit.
 * microseconds  below 1000000.
 *
 * Note: the resolution of names has no limit of its own and is not ended by this one. */
VEL_API void vel_http_set_timeout(velhttp *velhttp, int seconds, unsigned int microseconds);

/* Sets the limit of the time in which nothing is sent or received; 30 seconds by default.
 *
 * seconds       negative for no limit.
 * microseconds  below 1000000. */
VEL_API void vel_http_set_idle_timeout(velhttp *velhttp, int seconds, unsigned int microseconds);

/* Lets a backend with TLS trust the certificates of the system. There is no way back. */
VEL_API void vel_http_enable_system_ca(velhttp *velhttp);

/* Sets the file of trusted certificates for a backend with TLS.
 *
 * filename  is copied. NULL for none.
 *
 * Returns VEL_ERROR_NONE, or VEL_ERROR_NO_MEMORY, logged, with the earlier name in place. */
VEL_API vel_error_t vel_http_set_ca_filename(velhttp *velhttp, const char *filename);

/* Does for the directory of trusted certificates what vel_http_set_ca_filename does for the file.
 */
VEL_API vel_error_t vel_http_set_ca_path(velhttp *velhttp, const char *path);

/* Sets the function that takes the response body. Without one, by default or with NULL, the body is
 * kept in memory. */
VEL_API void vel_http_set_response_body_callback(velhttp *velhttp, vel_http_body_cb *callback,
                                                 void *context);

/* Sets the function that follows the upload; NULL for none.
 * Note: its numbers are 0 and -1 throughout.
 * Note: set both callbacks, and let them return fast. One tick serves both directions, and while it
 * is due no wait takes any time and the HTTP/1.0 client receives nothing. With the upload callback
 * alone, a response that takes longer than a second is never read: the transfer spins until a time
 * limit ends it. So it does with a callback that takes a second itself. */
VEL_API void vel_http_set_upload_progress_callback(velhttp *velhttp, vel_http_progress_cb *callback,
                                                   void *context);

/* Sets the function that follows the download; NULL for none. It is told 0 and -1 at the beginning
 * of each pass. The second note on vel_http_set_upload_progress_callback holds here, too: alone, it
 * makes a transfer that waits for the peer to take the request poll without a pause. */
VEL_API void vel_http_set_download_progress_callback(velhttp *velhttp,
                                                     vel_http_progress_cb *callback, void *context);

/* Sets both progress functions; NULL for none. The notes on
 * vel_http_set_upload_progress_callback say why one alone is not enough. */
VEL_API void vel_http_set_progress_callbacks(velhttp *velhttp, vel_http_progress_cb *uploadcallback,
                                             void *uploadcontext,
                                             vel_http_progress_cb *downloadcallback,
                                             void *downloadcontext);

/* Performs the prepared request and follows redirects (301 and 302) with the same method, headers
 * and body, for at most 10 requests in all. Blocks until the response is complete, a time limit
 * has passed, or vel_http_abort was seen.
 *
 * Returns VEL_ERROR_NONE when a response was received, whatever its status code;
 * VEL_ERROR_TIMER_EXPIRED when the limit of the whole transfer has passed; VEL_ERROR_TIMED_OUT when
 * the idle limit has passed; VEL_ERROR_CANCELED after vel_http_abort;
 * VEL_ERROR_OUT_OF_RANGE after the tenth redirect; VEL_ERROR_PROTOCOL for a redirect that does not
 * say where to; VEL_ERROR_UNSUPPORTED if the backend cannot perform; VEL_ERROR_NO_MEMORY; or what
 * the backend or a callback says. A failure is logged. The response then is what had come in.
 * Note: a redirect to anything but a full URL or a path that begins with a slash is not resolved.
 * Note: a redirect to another host gets the headers and the body too. The callback of
 * vel_http_set_proxy_callback learns where each pass goes, and may refuse. */
VEL_API vel_error_t vel_http_perform(velhttp *velhttp);

/* Gives the prepared request to an asynchronous backend and prepares a fresh one, with nothing
 * taken over, also on failure.
 *
 * callback  is called when the transfer has ended.
 * context   is handed to it.
 * result    receives VEL_ERROR_NONE or the cause of the failure: VEL_ERROR_UNSUPPORTED if the
 *           backend cannot do it; VEL_ERROR_NO_MEMORY, after which the prepared request is still
 *           there if no fresh one could be made; or what the backend or the proxy callback says.
 *
 * Returns the context, or NULL if the transfer has not started; then callback is not called. */
VEL_API void *vel_http_perform_async(velhttp *velhttp, vel_http_completion_cb *callback,
                                     void *context, vel_error_t *result);

/* Has the running transfer end at the next turn of its backend, with VEL_ERROR_CANCELED. Set
 * between transfers, it ends the next one.
 * Threads: any, during a transfer. Not from a signal handler, as it logs. */
VEL_API void vel_http_abort(velhttp *velhttp);

/* Gives the status code of the response; 0 if there was none. */
VEL_API unsigned int vel_http_get_status_code(velhttp *velhttp);

/* Looks up a header of the response.
 *
 * name  in any case of letters.
 *
 * Returns the value, which stays the context's until the next transfer, or NULL. */
VEL_API const char *vel_http_get_response_header(velhttp *velhttp, const char *name);

/* Looks up a header of the response and reads it as a decimal number. What follows the digits is
 * not looked at, and no digit at all gives 0.
 *
 * name      of the header, in any case.
 * valueptr  receives the number, or -1 on failure.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_NOT_FOUND for an unknown header; VEL_ERROR_OUT_OF_RANGE for a
 * number that an int of 32 bits does not hold. */
VEL_API vel_error_t vel_http_get_response_header_int(velhttp *velhttp, const char *name,
                                                     int *valueptr);

/* Copies the response body that was kept in memory, and terminates the copy.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_INVALID_ARGUMENT if there is no body; VEL_ERROR_OUT_OF_RANGE or
 * VEL_ERROR_NO_MEMORY. A failure is logged. */
VEL_API vel_error_t vel_http_get_response_body(velhttp *velhttp, char **bodyptr);

/* Copies the response body that was kept in memory, without a terminator.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_INVALID_ARGUMENT if there is no body; VEL_ERROR_NO_MEMORY. A
 * failure is logged. */
VEL_API vel_error_t vel_http_get_response_body_and_size(velhttp *velhttp, char **bodyptr,
                                                        size_t *sizeptr);

/* Gives the settings for older programs of the prepared request. They stay the request's. */
VEL_API velhttpdeprecated *vel_http_get_deprecated(velhttp *velhttp);

/* Fetches a URL into an open stream.
 *
 * url                    as for vel_http_set_url.
 * file                   stays the caller's and open.
 * seconds, microseconds  the limit of the whole transfer, as for vel_http_set_timeout.
 * createfunc             the constructor of a backend, such as vel_http_lite_create.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_GENERIC if the context could not be created or the status code
 * is not 200; VEL_ERROR_WRITE if the stream did not take all; or what vel_http_set_url or
 * vel_http_perform says. A failure is logged. */
VEL_API vel_error_t vel_http_generic_get_url_to_fileptr_with_timeout(
    const char *url, FILE *file, int seconds, unsigned int microseconds,
    vel_http_create_cb *createfunc);

/* Fetches a URL into a new file, without a limit of the whole transfer.
 *
 * Returns what vel_http_generic_get_url_to_fileptr_with_timeout returns, and VEL_ERROR_WRITE,
 * logged, if the file cannot be created.
 * Note: the file is emptied first, and after a failure it keeps what had come in. */
VEL_API vel_error_t vel_http_generic_get_url_to_file(const char *url, const char *filename,
                                                     vel_http_create_cb *createfunc);

/* From here on: for backends. A constructor of a backend calls vel_http_generic_create, keeps its
 * own record with vel_http_set_context, and sets the callbacks that it has. What is about the active
 * request logs at level 6 that there is none, unless it must exist. */

/* Creates a context without a backend.
 *
 * Returns the context, for vel_http_destroy, or NULL if there is not enough memory, which is
 * logged. */
VEL_API velhttp *vel_http_generic_create(void);

/* Stores the record of the backend, NULL at first. It goes to the destroy callback, and is never
 * freed otherwise. */
VEL_API void vel_http_set_context(velhttp *velhttp, void *context);

/* Gives the record of the backend, or NULL. */
VEL_API void *vel_http_get_context(velhttp *velhttp);

/* Sets the function that is called first when the context is destroyed. NULL, as at first, for
 * none. */
VEL_API void vel_http_set_destroy_callback(velhttp *velhttp, vel_http_destroy_cb *callback);

/* Sets the function that is called first in vel_http_reset. NULL, as at first, for none. */
VEL_API void vel_http_set_reset_callback(velhttp *velhttp, vel_http_reset_cb *callback);

/* Sets the function that takes a URL. Without one, by default or with NULL, vel_http_set_url gives
 * VEL_ERROR_UNSUPPORTED. */
VEL_API void vel_http_set_url_callback(velhttp *velhttp, vel_http_url_cb *callback);

/* Sets the function that does an exchange. Without one, by default or with NULL, vel_http_perform
 * gives VEL_ERROR_UNSUPPORTED. */
VEL_API void vel_http_set_perform_callback(velhttp *velhttp, vel_http_perform_cb *callback);

/* Sets the function that starts a transfer. Without one, by default or with NULL,
 * vel_http_perform_async gives VEL_ERROR_UNSUPPORTED. */
VEL_API void vel_http_set_perform_async_callback(velhttp *velhttp,
                                                 vel_http_perform_async_cb *callback);

/* Gives the method of the active request, which must exist. It stays the request's. */
VEL_API const char *vel_http_get_method(velhttp *velhttp);

/* Walks over the headers of the prepared request in the order in which they were added.
 *
 * iterator   NULL, or the result of the call before.
 * headerptr  receives the line, which stays the request's.
 *
 * Returns the iterator of this header; at the end NULL. */
VEL_API void *vel_http_get_header(velhttp *velhttp, void *iterator, const char **headerptr);

/* Gives the body of the prepared request, NULL without one. It stays the request's. */
VEL_API const void *vel_http_get_request_body(velhttp *velhttp, size_t *bodylenptr);

/* Gives the proxy of the active request. The text stays the request's.
 *
 * hostnameptr  receives NULL without a proxy or an active request; may be NULL.
 * portptr      receives 0 then; may be NULL. */
VEL_API void vel_http_get_proxy(velhttp *velhttp, const char **hostnameptr, unsigned int *portptr);

/* Gives the user and the password for the proxy of the active request. The texts stay the
 * request's.
 *
 * userptr      receives NULL without a user or an active request; may be NULL.
 * passwordptr  receives NULL then; may be NULL. */
VEL_API void vel_http_get_proxy_auth(velhttp *velhttp, const char **userptr,
                                     const char **passwordptr);

/* Gives the file and the directory of trusted certificates of the active request. The texts stay
 * the request's.
 *
 * filenameptr  receives NULL if none is set, or without an active request; may be NULL.
 * pathptr      as filenameptr. */
VEL_API void vel_http_get_ca_information(velhttp *velhttp, const char **filenameptr,
                                         const char **pathptr);

/* Tells whether the certificates of the system are trusted, by the active request, or by the
 * prepared one if there is none active.
 *
 * Returns 1 or 0. Logs nothing. */
VEL_API int vel_http_is_system_ca_enabled(velhttp *velhttp);

/* Gives the idle limit of the active request, negative seconds for none; 0 and 0 without an active
 * request. */
VEL_API void vel_http_get_idle_timeout(velhttp *velhttp, int *secondsptr,
                                       unsigned int *microsecondsptr);

/* Tells whether the active request is to end, which a backend then does with VEL_ERROR_CANCELED.
 *
 * Returns 1 or 0; 0 without an active request. */
VEL_API int vel_http_is_aborted(velhttp *velhttp);

/* Stores the status code of the active request, which must exist. */
VEL_API void vel_http_set_status_code(velhttp *velhttp, unsigned int code);

/* Takes a header of the response.
 *
 * name   is copied.
 * value  is copied. NULL if the line had no colon. See vel_httpheaders_add on what becomes of it.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_NO_MEMORY; VEL_ERROR_INVALID_ARGUMENT without an active
 * request. A failure is logged. */
VEL_API vel_error_t vel_http_write_response_header(velhttp *velhttp, const char *name,
                                                   const char *value);

/* Takes a piece of the response body. With the status 301, 302, 401 or 407 it is counted and
 * dropped.
 *
 * data  the piece.
 * size  its length in bytes, above 0.
 *
 * Returns VEL_ERROR_NONE; what the response body callback says; VEL_ERROR_NO_MEMORY;
 * VEL_ERROR_OUT_OF_RANGE for 2 to the 63rd bytes and more; VEL_ERROR_INVALID_ARGUMENT without an
 * active request. A failure of its own is logged. */
VEL_API vel_error_t vel_http_write_response_body(velhttp *velhttp, const void *data, size_t size);

/* Drops the headers and the body of the response so far of the active request, if there is one. */
VEL_API void vel_http_reset_response(velhttp *velhttp);

/* Checks the time limits of the active request. A backend calls it before each wait.
 *
 * secondsptr       receives how long the next wait may take at most, negative if without a limit;
 *                  the tick of the progress callbacks counts, too. May be NULL.
 * microsecondsptr  the same in microseconds. May be NULL.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_TIMER_EXPIRED when the limit of the whole transfer has passed;
 * VEL_ERROR_TIMED_OUT when the idle limit has passed; VEL_ERROR_INTERNAL without an active request.
 * A failure is logged. */
VEL_API vel_error_t vel_http_timeout_check(velhttp *velhttp, int *secondsptr,
                                           unsigned int *microsecondsptr);

/* Starts the limit of the whole transfer again, that of the active request, or of the prepared one
 * if there is none active, and gives it.
 *
 * secondsptr       may be NULL.
 * microsecondsptr  may be NULL. */
VEL_API void vel_http_timeout_reset(velhttp *velhttp, int *secondsptr,
                                    unsigned int *microsecondsptr);

/* Starts the idle limit of the active request again, if there is one. A backend calls it after
 * something was sent or received. */
VEL_API void vel_http_reset_idle_timeout(velhttp *velhttp);

/* Calls the upload progress callback of the active request if there is one and its tick, of about a
 * second, is due. If the callback wants to abort the transfer, vel_http_is_aborted tells. */
VEL_API void vel_http_progress_upload_check(velhttp *velhttp);

/* Calls the upload progress callback of the active request if there is one, whether its tick is due or
 * not. If the callback wants to abort the transfer, vel_http_is_aborted tells. */
VEL_API void vel_http_progress_upload_force(velhttp *velhttp);

/* Does for the download what vel_http_progress_upload_check does for the upload. */
VEL_API void vel_http_progress_download_check(velhttp *velhttp);

/* Does for the download what vel_http_progress_upload_force does for the upload. A backend calls it at
 * the end of the body. */
VEL_API void vel_http_progress_download_force(velhttp *velhttp);

/* Answers a final response of status 407 by adding a "proxy-authorization" header to the request,
 * if it can. Basic is the one scheme.
 *
 * Returns VEL_ERROR_NONE when the header was added and the response dropped, and also if the status
 * is not 407; VEL_ERROR_NOT_FOUND when there is nothing left to try; VEL_ERROR_PROTOCOL without a
 * proxy; VEL_ERROR_ACCESS without a user; VEL_ERROR_INVALID_ARGUMENT without an active request. */
VEL_API vel_error_t vel_http_handle_auth_request(velhttp *velhttp);

/* Makes a request the active one, whose response the functions above then take; NULL for none. An
 * asynchronous backend calls it around its work on a transfer. */
VEL_API void vel_http_set_active_request(velhttp *velhttp, velhttprequest *request);

/* Ends an asynchronous transfer: calls its completion callback, with the request active, and
 * destroys the request.
 *
 * request  is not to be used any more.
 * error    the result of the transfer. */
VEL_API void vel_http_complete_request(velhttp *velhttp, velhttprequest *request,
                                       vel_error_t error);

VEL_DECLARATIONS_END

#endif
