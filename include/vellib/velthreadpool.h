#ifndef VELLIB_VELTHREADPOOL_H
#define VELLIB_VELTHREADPOOL_H

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velthreadpool: a fixed number of threads that work off requests. A request is a pointer of the
 * host. It is submitted, a worker hands it to the request handler, and the same pointer comes back
 * as the result: the handler writes its answer, and whether it failed, behind it. Requests are
 * begun in the order in which they were submitted, and come back in the order in which they are
 * done.
 *
 *     velthreadpool_params *params = vel_threadpool_params_create_defaults();
 *     vel_threadpool_params_set_num_threads(params, 4);
 *     vel_threadpool_params_set_request_handler(params, work);
 *     velthreadpool *pool = vel_threadpool_create(params, &error);
 *     vel_threadpool_params_destroy(params);
 *
 * Threads: any may submit requests and get results, at once. One of them alone creates, stops and
 * destroys the pool. */
typedef struct velthreadpool velthreadpool;

/* velthreadpool_params: what a pool shall be like. A pool keeps a copy.
 * Threads: one at a time. */
typedef struct velthreadpool_params velthreadpool_params;

/* Makes the context of one worker, for its handlers alone. Called by vel_threadpool_create, on its
 * thread, before this worker starts; workers made before may run already.
 *
 * global    the global context.
 * errorptr  holds VEL_ERROR_GENERIC, and tells whether it went well: store VEL_ERROR_NONE. Any other
 *           code fails the creation of the pool.
 *
 * Returns the context, which may be NULL.
 * Note: if it fails, what it returns is not given to the callback that destroys. */
typedef void *vel_threadpool_thread_ctx_create_cb(void *global, vel_error_t *errorptr);

/* Destroys the context of one worker. Called on the thread that destroys the pool, or that could
 * not create it, once all workers have ended. */
typedef void vel_threadpool_thread_ctx_destroy_cb(void *global, void *threadctx);

/* Works on one request. Called on the thread of a worker with no lock held; it may submit further
 * requests.
 *
 * global     the global context, which all workers share.
 * threadctx  the context of this worker, or NULL if none is made.
 * request    what was submitted. */
typedef void vel_threadpool_request_handler_cb(void *global, void *threadctx, void *request);

VEL_DECLARATIONS_BEGIN

/* Creates the parameters of a pool with one thread, no contexts and no handler, which gives back
 * each request as it came.
 *
 * Returns them, for vel_threadpool_params_destroy, or NULL if there is not enough memory, which is
 * not logged. */
VEL_API velthreadpool_params *vel_threadpool_params_create_defaults(void);

/* Sets all parameters back to what vel_threadpool_params_create_defaults gives. */
VEL_API void vel_threadpool_params_set_defaults(velthreadpool_params *params);

/* Destroys parameters; pools made with them go on. */
VEL_API void vel_threadpool_params_destroy(velthreadpool_params *params);

/* Sets the number of threads.
 * Note: with 0 nothing works on the requests. */
VEL_API void vel_threadpool_params_set_num_threads(velthreadpool_params *params,
                                                   unsigned int numthreads);

/* Sets the context that all callbacks get. The pool does nothing to protect it.
 *
 * global  may be NULL. */
VEL_API void vel_threadpool_params_set_global_context(velthreadpool_params *params, void *global);

/* Sets what makes the context of each worker; NULL for none. */
VEL_API void
vel_threadpool_params_set_thread_ctx_create(velthreadpool_params *params,
                                            vel_threadpool_thread_ctx_create_cb *callback);

/* Sets what destroys the contexts that were made; NULL for none. */
VEL_API void
vel_threadpool_params_set_thread_ctx_destroy(velthreadpool_params *params,
                                             vel_threadpool_thread_ctx_destroy_cb *callback);

/* Sets what works on the requests; NULL for none. */
VEL_API void vel_threadpool_params_set_request_handler(velthreadpool_params *params,
                                                       vel_threadpool_request_handler_cb *callback);

/* Creates a pool and starts its threads, which makes the default log safe for several threads.
 *
 * params     copied. NULL is a failure like any other.
 * error_out  receives VEL_ERROR_NONE; VEL_ERROR_INVALID_ARGUMENT if params is NULL;
 *            VEL_ERROR_NO_MEMORY; the code of a callback that could not make a context; or
 *            VEL_ERROR_GENERIC if a lock or a thread could not be made. May be NULL.
 *
 * Returns the pool, for vel_threadpool_destroy, or NULL, which is logged. */
VEL_API velthreadpool *vel_threadpool_create(const velthreadpool_params *params,
                                             vel_error_t *error_out);

/* Lets the workers finish all requests that were submitted and ends them. Results can be had
 * afterwards as before. A second time does nothing.
 *
 * Blocks until the last handler has returned. */
VEL_API void vel_threadpool_stop(velthreadpool *pool);

/* Stops the pool, if it was not, and destroys it with the contexts of its workers.
 *
 * Blocks as vel_threadpool_stop does.
 * Note: results that nobody has got are dropped: whatever they own is lost. Stop, get them all,
 * then destroy. */
VEL_API void vel_threadpool_destroy(velthreadpool *pool);

/* Submits a request.
 *
 * request  may be NULL, if the handler can tell.
 *
 * Returns VEL_ERROR_NONE; or VEL_ERROR_NO_MEMORY, or VEL_ERROR_WRITE after a stop: then the request
 * stays the caller's. Neither is logged. Never waits for a worker. */
VEL_API vel_error_t vel_threadpool_submit_request(velthreadpool *pool, void *request);

/* Gets a request that is done.
 *
 * error_out  receives VEL_ERROR_NONE. May be NULL.
 *
 * Returns the request. Blocks until there is one.
 * Note: a stop does not end the wait. Whoever asks for more results than there were requests waits
 * for ever: count them, or use vel_threadpool_get_result_try after the stop. */
VEL_API void *vel_threadpool_get_result(velthreadpool *pool, vel_error_t *error_out);

/* Gets a request that is done, if there is one.
 *
 * error_out  receives VEL_ERROR_NONE, or VEL_ERROR_NOT_FOUND. May be NULL.
 *
 * Returns the request, or NULL. */
VEL_API void *vel_threadpool_get_result_try(velthreadpool *pool, vel_error_t *error_out);

VEL_DECLARATIONS_END

#endif
