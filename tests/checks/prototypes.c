/* The binary interface: argument order and types of every exported function, the shape of what else
 * is exported, and the numbers of all constants. Programs have these compiled in, so a line here
 * changes only together with the version of the library. tools/check_prototypes.sh compiles this
 * against the headers, as C and as C++: what differs is a conflicting declaration. */

#include <assert.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/socket.h>
#include <time.h>
#include <wchar.h>

#include <vellib/vellib.h>

VEL_DECLARATIONS_BEGIN

/* Codes and limits. */
const char *vel_error_string(int error);
void vel_uninit(void);
unsigned int vel_limit_max_unsigned_int(void);
unsigned long vel_limit_max_unsigned_long(void);
size_t vel_limit_max_size_t(void);
size_t vel_sizet_multiply_and_limit(size_t a, size_t b);

/* Allocation. */
void *vel_malloc(size_t size);
void *vel_calloc(size_t count, size_t size);
void *vel_cmalloc(size_t size);
void *vel_realloc(void *pointer, size_t size);
void vel_free(void *pointer);
void vel_malloc_uninit(void);
void vel_mallocfail_uninit(void);
void *vel_mallocfail_malloc(size_t size);
void *vel_mallocfail_calloc(size_t count, size_t size);
char *vel_mallocfail_backtrace_stacktrace(void);
char *vel_mallocfail_unwind_stacktrace(void);

/* Log. */
typedef int vel_log_cb(const char *string, size_t length, int level, time_t when, void *context);
int vel_log_init(void);
int vel_log_init_threaded(void);
void vel_log_uninit(void);
vellog *vel_log_create(void);
void vel_log_destroy(vellog *);
int vel_log_syslog_map(vellog *, int level, int priority);
void vel_log_callback_set(vellog *, vel_log_cb *, void *context);
void vel_log_callback_enable(vellog *);
void vel_log_callback_disable(vellog *);
void vel_log_logfile_enable(vellog *);
void vel_log_logfile_disable(vellog *);
void vel_log_stdout_enable(vellog *);
void vel_log_stdout_disable(vellog *);
void vel_log_stderr_enable(vellog *);
void vel_log_stderr_disable(vellog *);
void vel_log_syslog_enable(vellog *);
void vel_log_syslog_disable(vellog *);
void vel_log_callback_set_level(vellog *, int level);
void vel_log_logfile_set_level(vellog *, int level);
void vel_log_stdout_set_level(vellog *, int level);
void vel_log_stderr_set_level(vellog *, int level);
void vel_log_syslog_set_level(vellog *, int level);
void vel_log_syslog_set_facility(vellog *, int facility);
int vel_log_logfile_set_name(vellog *, const char *name);
int vel_log_logfile_recreate(vellog *);
void vel_log_logfile_set_filehandle(vellog *, FILE *stream);
int vel_log(vellog *, int level, const char *format, ...);
int vel_log_raw(vellog *, int level, const char *format, ...);
void vel_log_macro_mutex_lock(void);
void vel_log_macro_mutex_unlock(void);
void vel_log_macro_set_values(vellog *, int level, const char *file, int line);
int vel_log_macro_format(const char *format, ...);
int vel_log_macro(vellog *, int level, const char *file, int line, const char *format, ...);

/* Strings and numbers. */
char *vel_strdup(const char *string);
char *vel_strndup(const char *string, size_t n);
char *vel_strdup_lowercase(const char *string);
char *vel_strndup_lowercase(const char *string, size_t n);
void *vel_memdup(const void *memory, size_t size);
int vel_asprintf(char **strp, const char *format, ...);
int vel_vasprintf(char **strp, const char *format, va_list);
char *vel_strdupf(const char *format, ...);
char *vel_vstrdupf(const char *format, va_list);
int vel_strcasecmp(const char *s1, const char *s2);
int vel_strncasecmp(const char *s1, const char *s2, size_t n);
char *vel_strnchr(const char *string, size_t n, int c);
int vel_endswith(const char *string, const char *suffix);
void *vel_memmem(const void *haystack, size_t haystack_len, const void *needle, size_t needle_len);
char *vel_strncpy(char *dest, const char *src, size_t n);
char *vel_strstrip(const char *str);
void vel_strptrstrip(const char **strptr, size_t *strlenptr);
char *vel_i64tostr(int64_t value);
vel_error_t vel_strtoi64(const char *str, int64_t *out);
int vel_convert_int_from_size_t(int *dest, size_t src);
int vel_convert_int_from_size_t_and_limit(int *dest, size_t src);
int vel_convert_uint_from_size_t_and_limit(unsigned int *dest, size_t src);
long vel_convert_long_from_double_round(double);
int64_t vel_convert_i64_from_double_round(double);
void vel_convert_custr_from_cstr(const unsigned char **destptr, const char *src);
void vel_convert_cstr_from_custr(const char **destptr, const unsigned char *src);

/* Base. */
vel_list *vel_list_create(void);
void vel_list_destroy(vel_list *);
void vel_list_init(vel_list *);
velmutex *vel_mutex_create(void);
void vel_mutex_destroy(velmutex *);
int vel_mutex_lock(velmutex *);
int vel_mutex_unlock(velmutex *);
time_t vel_time(time_t *);
struct tm *vel_localtime_r(const time_t *timep, struct tm *result);
int vel_snprintf(char *str, size_t size, const char *format, ...);
int vel_vsnprintf(char *str, size_t size, const char *format, va_list);
int vel_stdio_printf_stderr(const char *format, ...);

/* Hash table. */
typedef size_t vel_hash_calc_cb(const void *item, void *context);
typedef int vel_hash_compare_cb(const void *item1, const void *item2, void *context);
typedef void vel_hash_destroy_cb(void *item, void *context);
velhash *vel_hash_create(size_t linkoffset, vel_hash_calc_cb *, vel_hash_compare_cb *,
                         vel_hash_destroy_cb *, void *context);
velhash *vel_hash_create_from(velhash *original);
void vel_hash_destroy(velhash *);
void vel_hash_clear(velhash *);
void vel_hash_add(velhash *, void *item);
void vel_hash_remove(velhash *, void *item);
void *vel_hash_lookup(velhash *, const void *searchitem);
void *vel_hash_enumerate_start(velhash *);
void *vel_hash_enumerate_next(velhash *, void *item);
void vel_hash_debug_state(velhash *, size_t *mainentries, size_t *mainslots, size_t *biggerentries,
                          size_t *biggerslots, size_t *smallerentries, size_t *smallerslots);

/* String hash and cache. */
uint64_t vel_hashfunc_string(const char *string);
velstringhash *vel_stringhash_create(void (*destroycallback)(void *value, void *context),
                                     void *context);
velstringhash *vel_stringhash_create_from(velstringhash *original);
void vel_stringhash_destroy(velstringhash *);
void vel_stringhash_clear(velstringhash *);
int vel_stringhash_add(velstringhash *, const char *key, void *value);
int vel_stringhash_remove(velstringhash *, const char *key);
void *vel_stringhash_lookup(velstringhash *, const char *key);
void *vel_stringhash_enumerate_start(velstringhash *, const char **keyptr, void **valueptr);
void *vel_stringhash_enumerate_next(velstringhash *, void *prevstringhashitem, const char **keyptr,
                                    void **valueptr);
velcache *vel_cache_create(size_t limitsize);
void vel_cache_destroy(velcache *);
void vel_cache_set_memory_limit(velcache *, size_t limitsize);
vel_error_t vel_cache_set(velcache *, const char *key, const void *data, size_t datalen);
vel_error_t vel_cache_get(velcache *, const char *key, const void **dataptr, size_t *datalenptr);

/* JSON. */
veljson *vel_json_create(void);
void vel_json_destroy(veljson *);
int vel_json_parse(veljson *, const char *json);
veljsonnode *vel_json_node_create(unsigned int nodetype);

/* JSON fetching: document, node if there is one, output, then the path, closed by (char *)NULL. */
int vel_json_fetch_node_const(veljson *, const veljsonnode **, ...);
int vel_json_fetch_node(veljson *, veljsonnode **, ...);
int vel_json_fetch_string(veljson *, const char **, ...);
int vel_json_fetch_int(veljson *, int *, ...);
int vel_json_fetch_int64(veljson *, int64_t *, ...);
int vel_json_fetch_double(veljson *, double *, ...);
int vel_json_fetch_boolean(veljson *, int *, ...);
int vel_json_fetch_null(veljson *, int *, ...);
int vel_json_node_fetch_node_const(veljson *, const veljsonnode *, const veljsonnode **, ...);
int vel_json_node_fetch_node(veljson *, veljsonnode *, veljsonnode **, ...);
int vel_json_node_fetch_string(veljson *, const veljsonnode *, const char **, ...);
int vel_json_node_fetch_int(veljson *, const veljsonnode *, int *, ...);
int vel_json_node_fetch_int64(veljson *, const veljsonnode *, int64_t *, ...);
int vel_json_node_fetch_double(veljson *, const veljsonnode *, double *, ...);
const veljsonnode *vel_json_node_fetch_next_const(veljson *, const veljsonnode *node);
veljsonnode *vel_json_node_fetch_next(veljson *, veljsonnode *node);
void *vel_json_enumerate_start(veljson *, veljsonnode *objectnode, const char **keyptr,
                               veljsonnode **nodeptr);
void *vel_json_enumerate_next(veljson *, veljsonnode *objectnode, void *veljsonenumhandle,
                              const char **keyptr, veljsonnode **nodeptr);
int vel_json_is_object(veljson *, const veljsonnode *);
int vel_json_is_array(veljson *, const veljsonnode *);
int vel_json_is_string(veljson *, const veljsonnode *);
int vel_json_is_number(veljson *, const veljsonnode *);
int vel_json_is_integer(veljson *, const veljsonnode *);
int vel_json_is_double(veljson *, const veljsonnode *);
int vel_json_is_boolean(veljson *, const veljsonnode *);
int vel_json_is_true(veljson *, const veljsonnode *);
int vel_json_is_false(veljson *, const veljsonnode *);
int vel_json_is_null(veljson *, const veljsonnode *);
vel_error_t vel_json_node_set_null(veljson *, veljsonnode *);
vel_error_t vel_json_node_set_true(veljson *, veljsonnode *);
vel_error_t vel_json_node_set_false(veljson *, veljsonnode *);
vel_error_t vel_json_node_set_string(veljson *, veljsonnode *, const char *string);
vel_error_t vel_json_node_set_integer(veljson *, veljsonnode *, int64_t);
vel_error_t vel_json_node_set_double(veljson *, veljsonnode *, double);
vel_error_t vel_json_node_set_array(veljson *, veljsonnode *);
vel_error_t vel_json_node_set_object(veljson *, veljsonnode *);
veljsonnode *vel_json_node_array_add(veljson *, veljsonnode *arraynode);
veljsonnode *vel_json_node_object_add(veljson *, veljsonnode *objectnode, const char *key);
vel_error_t vel_json_node_copy(veljson *, veljsonnode *node, veljson *source);
vel_error_t vel_json_node_copy_node(veljson *, veljsonnode *node, veljson *source,
                                    const veljsonnode *sourcenode);
char *vel_json_output(veljson *);

/* XML. */
velxml *vel_xml_create(void);
void vel_xml_destroy(velxml *);
int vel_xml_parse(velxml *, const char *xml);
int vel_xml_output(velxml *, FILE *out);
char *vel_xml_query_value(velxml *, ...);
int vel_xml_query_value_const(velxml *, const char **valueptr, size_t *valuelenptr, ...);

/* Wide characters. */
size_t vel_wchar_strlen(const wchar_t *);
size_t vel_punycode_wchar_strlen(const wchar_t *);
size_t vel_wcslen(const wchar_t *);
char *vel_wchar_to_utf8(const wchar_t *);
char *vel_punycode_wchar_to_utf8(const wchar_t *);
wchar_t *vel_wchar_from_utf8(const char *);
wchar_t *vel_punycode_wchar_from_utf8(const char *);
int vel_wchar_buffer_from_utf8(wchar_t *warray, size_t *warraylenptr, const char *utf8);
int vel_punycode_wchar_buffer_from_utf8(wchar_t *warray, size_t *warraylenptr, const char *utf8);
int vel_wcscmp(const wchar_t *s1, const wchar_t *s2);
int vel_wcsncmp(const wchar_t *s1, const wchar_t *s2, size_t n);
wchar_t *vel_wcsdup(const wchar_t *);
wchar_t *vel_wcsndup(const wchar_t *, size_t n);

/* Threads and locks. */
velrwlock *vel_rwlock_create(void);
void vel_rwlock_destroy(velrwlock *);
int vel_rwlock_rdlock(velrwlock *);
int vel_rwlock_wrlock(velrwlock *);
int vel_rwlock_unlock(velrwlock *);
velcond *vel_cond_create(void);
void vel_cond_destroy(velcond *);
int vel_cond_lock(velcond *);
int vel_cond_unlock(velcond *);
int vel_cond_wait(velcond *);
int vel_cond_signal(velcond *);
int vel_cond_broadcast(velcond *);
velthread *vel_thread_create(void);
void vel_thread_destroy(velthread *);
int vel_thread_start(velthread *, void *(*start)(void *), void *arg);
int vel_thread_join(velthread *, void **returnptr);
int vel_sleep(unsigned int seconds, unsigned int microseconds);
typedef void vel_signal_cb(int velsignal, void *context);
int vel_signal_register_sigint(vel_signal_cb *, void *context);
int vel_signal_register_sigterm(vel_signal_cb *, void *context);
int vel_signal_ignore_sigpipe(void);

/* Clocks: seconds out are int *, microseconds out unsigned int *. */
veltimeout *vel_timeout_create(void);
void vel_timeout_destroy(veltimeout *);
void vel_timeout_set(veltimeout *, int seconds, unsigned int microseconds);
void vel_timeout_reset(veltimeout *, int *secondsptr, unsigned int *microsecondsptr);
int vel_timeout_check(veltimeout *, int *secondsptr, unsigned int *microsecondsptr);
veltimer *vel_timer_create(void);
void vel_timer_destroy(veltimer *);
void vel_timer_start(veltimer *);
void vel_timer_split(veltimer *);
void vel_timer_storesplit(veltimer *);
void vel_timer_getsplit(veltimer *, uint64_t count, int *secondsptr, unsigned int *microsecondsptr,
                        double *rateptr);
void vel_timer_gettotal(veltimer *, uint64_t count, int *secondsptr, unsigned int *microsecondsptr,
                        double *rateptr);

/* Lock queue. */
vellockqueue_element *vel_lockqueue_element_create(void);
void vel_lockqueue_element_destroy(vellockqueue_element *);
void vel_lockqueue_element_set_item(vellockqueue_element *, void *item);
void *vel_lockqueue_element_get_item(vellockqueue_element *);
vel_error_t vel_lockqueue_push_element(vellockqueue *, vellockqueue_element *);
vel_error_t vel_lockqueue_push(vellockqueue *, void *item);
vellockqueue_element *vel_lockqueue_pop_element(vellockqueue *, vel_error_t *error_out);
vellockqueue_element *vel_lockqueue_pop_element_try(vellockqueue *, vel_error_t *error_out);
vellockqueue *vel_lockqueue_create(vel_error_t *error_out);
void vel_lockqueue_destroy(vellockqueue *, void (*destroyitem)(void *item));
void vel_lockqueue_set_end(vellockqueue *);
void *vel_lockqueue_pop(vellockqueue *, vel_error_t *error_out);
void *vel_lockqueue_pop_try(vellockqueue *, vel_error_t *error_out);

/* Thread pool. */
velthreadpool_params *vel_threadpool_params_create_defaults(void);
void vel_threadpool_params_set_defaults(velthreadpool_params *);
void vel_threadpool_params_destroy(velthreadpool_params *);
void vel_threadpool_params_set_num_threads(velthreadpool_params *, unsigned int);
void vel_threadpool_params_set_global_context(velthreadpool_params *, void *);
void vel_threadpool_params_set_thread_ctx_create(velthreadpool_params *,
                                                 void *(*)(void *global, vel_error_t *errorptr));
void vel_threadpool_params_set_thread_ctx_destroy(velthreadpool_params *,
                                                  void (*)(void *global, void *threadctx));
void vel_threadpool_params_set_request_handler(velthreadpool_params *,
                                               void (*)(void *global, void *threadctx,
                                                        void *request));
velthreadpool *vel_threadpool_create(const velthreadpool_params *, vel_error_t *error_out);
void vel_threadpool_stop(velthreadpool *);
void vel_threadpool_destroy(velthreadpool *);
vel_error_t vel_threadpool_submit_request(velthreadpool *, void *request);
void *vel_threadpool_get_result(velthreadpool *, vel_error_t *error_out);
void *vel_threadpool_get_result_try(velthreadpool *, vel_error_t *error_out);

/* Files. */
FILE *vel_file_create_binary(const char *filename);
FILE *vel_file_open_binary(const char *filename);
FILE *vel_file_update_binary(const char *filename);
FILE *vel_file_create_ascii(const char *filename);
FILE *vel_file_open_ascii(const char *filename);
FILE *vel_file_append_ascii(const char *filename);
FILE *vel_utf8file_create_binary(const char *filename);
FILE *vel_utf8file_open_binary(const char *filename);
FILE *vel_utf8file_create_ascii(const char *filename);
FILE *vel_utf8file_append_ascii(const char *filename);
size_t vel_file_read(FILE *, void *buffer, size_t count);
size_t vel_file_write(FILE *, const void *buffer, size_t count);
char *vel_file_fgets(char *buffer, int size, FILE *stream);
int vel_file_fprintf(FILE *, const char *format, ...);
int vel_file_feof(FILE *);
int vel_file_ferror(FILE *);
int vel_file_close(FILE *);
int vel_file_seek(FILE *, long offset, int whence);
int vel_file_seek64(FILE *, int64_t offset, int whence);
int vel_file_seek_forwards_64(FILE *, vel_uint64_t amount);
int vel_file_seek_backwards_64(FILE *, vel_uint64_t amount);
int64_t vel_file_get_length(FILE *);
FILE *vel_file_get_stdin(void);
FILE *vel_file_get_stdout(void);
FILE *vel_file_get_stderr(void);
int vel_file_data_save(const char *filename, const void *data, size_t datalen);
int vel_file_data_save_with_backup(const char *filename, const void *data, size_t datalen);
int vel_file_data_load(const char *filename, void **dataptr, size_t *datalen);
int vel_file_data_load_with_backup(const char *filename, void **dataptr, size_t *datalen);
int vel_utf8file_data_save(const char *filename, const void *data, size_t datalen);
int vel_utf8file_data_save_with_backup(const char *filename, const void *data, size_t datalen);
int vel_utf8file_data_load(const char *filename, void **dataptr, size_t *datalen);
int vel_utf8file_data_load_with_backup(const char *filename, void **dataptr, size_t *datalen);
int vel_deletefile(const char *filename);
int vel_utf8deletefile(const char *filename);
int vel_wdeletefile(const wchar_t *wfilename);
int vel_rename(const char *oldpath, const char *newpath);
int vel_utf8rename(const char *oldpath, const char *newpath);
int vel_truncate(const char *filename, int64_t length);

/* Directories and links. */
veldir *vel_dir_open(const char *path);
velutf8dir *vel_utf8dir_open(const char *path);
void vel_dir_destroy(veldir *);
void vel_utf8dir_destroy(velutf8dir *);
int vel_dir_next(veldir *);
int vel_dir_is_directory(veldir *);
int vel_dir_is_symlink(veldir *);
int vel_dir_get_error(veldir *);
int vel_utf8dir_next(velutf8dir *);
int vel_utf8dir_is_directory(velutf8dir *);
int vel_utf8dir_is_symlink(velutf8dir *);
int vel_utf8dir_get_error(velutf8dir *);
const char *vel_dir_fetch_name(veldir *);
const char *vel_utf8dir_fetch_name(velutf8dir *);
char *vel_dir_copy_name(veldir *);
char *vel_utf8dir_copy_name(velutf8dir *);
int64_t vel_dir_get_size(veldir *);
int64_t vel_utf8dir_get_size(velutf8dir *);
int64_t vel_stat_get_size(velstat *);
int64_t vel_utf8stat_get_size(velutf8stat *);
char vel_dir_separator(void);
char vel_utf8dir_separator(void);
int vel_dir_remove_recursive(const char *path);
int vel_utf8dir_remove_recursive(const char *path);
int vel_file_exists(const char *name);
int vel_utf8file_exists(const char *name);
velstat *vel_stat_create(void);
velutf8stat *vel_utf8stat_create(void);
void vel_stat_destroy(velstat *);
void vel_utf8stat_destroy(velutf8stat *);
int vel_stat_lstat(velstat *, const char *path);
int vel_stat_is_directory(velstat *);
int vel_stat_is_symlink(velstat *);
int vel_utf8stat_lstat(velutf8stat *, const char *path);
int vel_utf8stat_is_directory(velutf8stat *);
int vel_utf8stat_is_symlink(velutf8stat *);
int vel_mkdir(const char *pathname);
int vel_utf8mkdir(const char *pathname);
int vel_rmdir(const char *pathname);
int vel_utf8rmdir(const char *pathname);
int vel_mkdir_file_path(const char *filename);
int vel_utf8mkdir_file_path(const char *filename);
vel_error_t vel_mkdir_recursive(const char *pathname);
vel_error_t vel_utf8mkdir_recursive(const char *pathname);
vel_error_t vel_symlink_file(const char *target, const char *linkpath);
vel_error_t vel_symlink_directory(const char *target, const char *linkpath);
vel_error_t vel_hardlink(const char *target, const char *linkpath);
vel_error_t vel_utf8symlink_file(const char *target, const char *linkpath);
vel_error_t vel_utf8symlink_directory(const char *target, const char *linkpath);
vel_error_t vel_utf8hardlink(const char *target, const char *linkpath);

/* Paths and INI. */
velpath *vel_path_create(void);
void vel_path_destroy(velpath *);
void vel_path_clear(velpath *);
int vel_path_append(velpath *, const char *name);
int vel_path_remove_last(velpath *);
char *vel_path_get(velpath *);
const char *vel_path_peek(velpath *);
velinifile *vel_inifile_create(vel_error_t *error_out);
velinifile *vel_inifile_create_from_file(const char *filename, vel_error_t *error_out);
void vel_inifile_destroy(velinifile *);
void vel_inifile_delete_all(velinifile *, const char *section, const char *key,
                            unsigned int *count);
vel_error_t vel_inifile_write_file(velinifile *, const char *filename);
vel_error_t vel_inifile_set(velinifile *, const char *section, const char *key,
                            const char *new_value);
const char *vel_inifile_get(velinifile *, const char *section, const char *key);

/* Digests. */
velsha1 *vel_sha1_create(void);
velsha256 *vel_sha256_create(void);
void vel_sha1_init(velsha1 *);
void vel_sha1_destroy(velsha1 *);
void vel_sha1_finalize(velsha1 *);
void vel_sha1_update(velsha1 *, const void *data, size_t count);
void vel_sha1_digest(velsha1 *, unsigned char *digest);
void vel_sha256_init(velsha256 *);
void vel_sha256_destroy(velsha256 *);
void vel_sha256_finalize(velsha256 *);
void vel_sha256_update(velsha256 *, const void *data, size_t count);
void vel_sha256_digest(velsha256 *, unsigned char *digest);

/* Random. */
int vel_random_init(void);
void vel_random_uninit(void);
velrandom *vel_random_create(void);
void vel_random_destroy(velrandom *);
int vel_random_set_filename(velrandom *, const char *filename);
int vel_random_buffer(velrandom *, void *buffer, size_t count);
unsigned int vel_random_uint(velrandom *);
veluuid *vel_uuid_create(void);
void vel_uuid_destroy(veluuid *);
void vel_uuid_set_random(veluuid *, velrandom *);
char *vel_uuid_random(veluuid *);

/* Address resolution. */
veladdrinfo *vel_addrinfo_create(const char *hostname);
void vel_addrinfo_destroy(veladdrinfo *);
void vel_addrinfo_set_udp(veladdrinfo *);
void vel_addrinfo_set_numerichost(veladdrinfo *);
vel_error_t vel_addrinfo_get_next(veladdrinfo *, struct sockaddr **sockaddrptr,
                                  socklen_t *socklenptr);

/* Sockets. */
velsocket *vel_socket_create(int domain, int type, int protocol);
velsocket *vel_socket_tcp_create(void);
velsocket *vel_socket_udp_create(void);
void vel_socket_destroy(velsocket *);
vel_error_t vel_socket_bind(velsocket *, const char *address, unsigned int port);
vel_error_t vel_socket_listen(velsocket *, int backlog);
vel_error_t vel_socket_accept(velsocket *, velsocket **connectionsocketptr);
size_t vel_socket_read(velsocket *, void *buf, size_t maxlen);
size_t vel_socket_read_with_timeout(velsocket *, void *buf, size_t maxlen, int timeoutsecs,
                                    unsigned int timeoutusecs);
size_t vel_socket_write(velsocket *, const void *buf, size_t len);
vel_error_t vel_socket_poll_read(velsocket *, int timeoutsecs, unsigned int timeoutusecs);
vel_error_t vel_socket_poll_write(velsocket *, int timeoutsecs, unsigned int timeoutusecs);
vel_error_t vel_socket_enable_wakeup(velsocket *);
vel_error_t vel_socket_wakeup(velsocket *);
vel_error_t vel_socket_enable_broadcast(velsocket *);
vel_error_t vel_socket_get_error(velsocket *);
vel_error_t vel_socket_get_local_port(velsocket *, unsigned int *portptr);
vel_error_t vel_socket_get_peer_name(velsocket *, struct sockaddr *sockaddr, size_t *salenptr);

/* Connecting. */
velsocket *vel_socket_tcp_connect(const char *name, unsigned int port, vel_error_t *velerrorptr);
velsocket *vel_socket_tcp_connect_async(const char *name, unsigned int port,
                                        vel_error_t *velerrorptr);
velsocket *vel_socket_udp_connect(const char *name, unsigned int port, vel_error_t *velerrorptr);
velsocket *vel_socket_tcp_connect_with_timeout(const char *name, unsigned int port, int timeoutsecs,
                                               unsigned int timeoutusecs, vel_error_t *velerrorptr);
vel_error_t vel_socket_connect(velsocket *, const char *name, unsigned int port);
vel_error_t vel_socket_connect_async(velsocket *, const char *name, unsigned int port);
vel_error_t vel_socket_connect_wait(velsocket *, int timeoutsecs, unsigned int timeoutusecs);

/* Handles. */
void vel_handle_set_destroy_callback(velhandle *, void (*)(velhandle *));
void vel_handle_set_connect_callback(velhandle *, vel_error_t (*)(velhandle *, const char *name,
                                                                  unsigned int port));
void vel_handle_set_connect_wait_callback(velhandle *, vel_error_t (*)(velhandle *));
void vel_handle_set_read_callback(velhandle *, size_t (*)(velhandle *, void *buf, size_t count));
void vel_handle_set_write_callback(velhandle *,
                                   size_t (*)(velhandle *, const void *buf, size_t count));
void vel_handle_set_poll_write_callback(velhandle *, vel_error_t (*)(velhandle *));
void vel_handle_set_local_port_callback(velhandle *,
                                        vel_error_t (*)(velhandle *, unsigned int *portptr));
void vel_handle_set_peer_name_callback(velhandle *,
                                       vel_error_t (*)(velhandle *, struct sockaddr *sockaddr,
                                                       size_t *salenptr));
void vel_handle_set_accept_callback(velhandle *,
                                    vel_error_t (*)(velhandle *, velhandle **connectionhandleptr));
void vel_handle_set_wakeup_callback(velhandle *, vel_error_t (*)(velhandle *));
velhandle *vel_handle_create(void);
void vel_handle_destroy(velhandle *);
void vel_handle_set_write_timeout(velhandle *, int seconds, unsigned int microseconds);
void vel_handle_set_read_timeout(velhandle *, int seconds, unsigned int microseconds);
void vel_handle_get_write_timeout(velhandle *, int *secondsptr, unsigned int *microsecondsptr);
void vel_handle_get_read_timeout(velhandle *, int *secondsptr, unsigned int *microsecondsptr);
vel_error_t vel_handle_connect(velhandle *, const char *name, unsigned int port);
vel_error_t vel_handle_connect_begin(velhandle *, const char *name, unsigned int port);
vel_error_t vel_handle_connect_wait(velhandle *);
size_t vel_handle_read(velhandle *, void *buf, size_t count);
size_t vel_handle_write(velhandle *, const void *buf, size_t count);
size_t vel_handle_read_line(velhandle *, void *buf, size_t size);
vel_error_t vel_handle_get_error(velhandle *);
vel_error_t vel_handle_get_local_port(velhandle *, unsigned int *portptr);
vel_error_t vel_handle_get_peer_name(velhandle *, struct sockaddr *sockaddr, size_t *salenptr);
vel_error_t vel_handle_accept(velhandle *, velhandle **connectionhandleptr);
vel_error_t vel_handle_wakeup(velhandle *);
void vel_handle_set_error(velhandle *, vel_error_t velerror);
void vel_handle_set_context(velhandle *, void *);
void *vel_handle_get_context(velhandle *);

/* TCP and UDP handles. */
velhandle *vel_handle_tcp_create(void);
velhandle *vel_handle_udp_create(void);
velhandle *vel_handle_tcp_connect(const char *name, unsigned int port);
velhandle *vel_handle_udp_connect(const char *name, unsigned int port);
vel_error_t vel_handle_tcp_listen(const char *address, unsigned int port,
                                  velhandle **listenhandleptr);
vel_error_t vel_handle_udp_listen(const char *address, unsigned int port,
                                  velhandle **listenhandleptr);

/* Servers. */
veltcpserver *vel_tcpserver_create(void);
veludpserver *vel_udpserver_create(void);
void vel_tcpserver_destroy(veltcpserver *);
void vel_tcpserver_stop(veltcpserver *);
void vel_tcpserver_wait(veltcpserver *);
void vel_tcpserver_set_port(veltcpserver *, unsigned int port);
void vel_udpserver_destroy(veludpserver *);
void vel_udpserver_stop(veludpserver *);
void vel_udpserver_wait(veludpserver *);
void vel_udpserver_set_port(veludpserver *, unsigned int port);
vel_error_t vel_tcpserver_set_address(veltcpserver *, const char *address);
vel_error_t vel_tcpserver_start(veltcpserver *);
vel_error_t vel_tcpserver_run(veltcpserver *);
vel_error_t vel_tcpserver_get_port(veltcpserver *, unsigned int *portptr);
vel_error_t vel_udpserver_set_address(veludpserver *, const char *address);
vel_error_t vel_udpserver_start(veludpserver *);
vel_error_t vel_udpserver_run(veludpserver *);
vel_error_t vel_udpserver_get_port(veludpserver *, unsigned int *portptr);
void vel_tcpserver_set_callback(veltcpserver *,
                                void (*)(veltcpserver *, velhandle *, void *context),
                                void *context);
void vel_udpserver_set_callback(veludpserver *,
                                void (*)(veludpserver *, velhandle *, const void *buffer,
                                         size_t length, void *context),
                                void *context);

/* Event loop. */
typedef void vel_async_timeout_cb(vel_error_t code, void *context);
typedef void vel_async_socket_cb(void *context);
velasync *vel_async_create(void);
void vel_async_destroy(velasync *);
void vel_async_poll(velasync *);
void vel_async_cancel(velasync *, velasyncop *);
int vel_async_get_native_handle(velasync *);
int vel_async_get_timeout_ms(velasync *);
velasyncop *vel_async_register_timeout_ms(velasync *, unsigned int ms, vel_async_timeout_cb *,
                                          void *context);
vel_error_t vel_async_register_socket_read(velasync *, int s, vel_async_socket_cb *, void *context);
vel_error_t vel_async_register_socket_write(velasync *, int s, vel_async_socket_cb *,
                                            void *context);
vel_error_t vel_async_unregister_socket_read(velasync *, int s);
vel_error_t vel_async_unregister_socket_write(velasync *, int s);
vel_error_t vel_async_process(velasync *);
velasyncop *vel_async_handle_create(void (*cancel_callback)(void *context), void *context);
void vel_async_handle_destroy(velasyncop *);
void vel_async_handle_cancel(velasyncop *);
void vel_async_handle_append(velasyncop *, vel_list *);
void vel_async_handle_remove(velasyncop *, vel_list *);
velasyncoperations *vel_async_operations_create(void);
void vel_async_operations_destroy(velasyncoperations *);
void vel_async_operations_append_active(velasyncoperations *, velasyncop *);
void vel_async_operations_remove_active(velasyncoperations *, velasyncop *);
void vel_async_operations_cancel(velasyncoperations *, velasyncop *);
vel_error_t vel_async_operations_process_canceled(velasyncoperations *);

/* Readiness and timeouts. */
velasyncsocket *vel_async_socket_create(void);
void vel_async_socket_destroy(velasyncsocket *);
vel_error_t vel_async_socket_register_read(velasync *, velasyncsocket *, int eventhandle, int s,
                                           vel_async_socket_cb *, void *context);
vel_error_t vel_async_socket_register_write(velasync *, velasyncsocket *, int eventhandle, int s,
                                            vel_async_socket_cb *, void *context);
vel_error_t vel_async_socket_unregister_read(velasync *, velasyncsocket *, int eventhandle, int s);
vel_error_t vel_async_socket_unregister_write(velasync *, velasyncsocket *, int eventhandle, int s);
vel_error_t vel_async_socket_process_read(velasyncsocket *, int s);
vel_error_t vel_async_socket_process_write(velasyncsocket *, int s);
int vel_async_socket_check(velasyncsocket *);
velasynctimeout *vel_async_timeout_create(velasyncoperations *operations);
void vel_async_timeout_destroy(velasynctimeout *);
void vel_async_timeout_get_us(velasynctimeout *, int *secondsptr, unsigned int *microsecondsptr);
velasyncop *vel_async_timeout_add_us(velasynctimeout *, int seconds, unsigned int microseconds,
                                     vel_async_timeout_cb *, void *context);
vel_error_t vel_async_timeout_process(velasynctimeout *);

/* HTTP front end. */
typedef vel_error_t vel_http_proxy_cb(velhttp *, const char *scheme, const char *host,
                                      unsigned int port, void *context);
typedef vel_error_t vel_http_body_cb(const void *data, size_t size, void *context);
typedef int vel_http_progress_cb(int64_t current, int64_t total, void *context);
typedef void vel_http_completion_cb(velhttp *, vel_error_t result, void *context);
velhttp *vel_http_generic_create(void);
void vel_http_destroy(velhttp *);
void vel_http_set_context(velhttp *, void *);
void vel_http_set_async_context(velhttp *, void *);
void *vel_http_get_context(velhttp *);
void *vel_http_get_async_context(velhttp *);
void vel_http_set_destroy_callback(velhttp *, void (*)(void *context));
void vel_http_set_reset_callback(velhttp *, vel_error_t (*)(velhttp *));
void vel_http_set_url_callback(velhttp *, vel_error_t (*)(velhttp *, const char *url));
void vel_http_set_perform_callback(velhttp *, vel_error_t (*)(velhttp *));
void vel_http_set_perform_async_callback(velhttp *,
                                         void *(*)(velhttp *, velhttprequest *, vel_error_t *));
vel_error_t vel_http_reset(velhttp *);
vel_error_t vel_http_set_proxy(velhttp *, const char *hostname, unsigned int port);
vel_error_t vel_http_set_proxy_with_auth(velhttp *, const char *hostname, unsigned int port,
                                         const char *user, const char *password);
void vel_http_set_proxy_callback(velhttp *, vel_http_proxy_cb *, void *context);
void vel_http_set_timeout(velhttp *, int seconds, unsigned int microseconds);
void vel_http_set_idle_timeout(velhttp *, int seconds, unsigned int microseconds);
void vel_http_enable_system_ca(velhttp *);
vel_error_t vel_http_set_ca_filename(velhttp *, const char *);
vel_error_t vel_http_set_ca_path(velhttp *, const char *);
vel_error_t vel_http_set_url(velhttp *, const char *url);
vel_error_t vel_http_set_method(velhttp *, const char *method);
vel_error_t vel_http_add_header(velhttp *, const char *header);
vel_error_t vel_http_set_request_body(velhttp *, const void *data, size_t size);
void vel_http_set_method_get(velhttp *);
void vel_http_set_method_post(velhttp *);
void vel_http_set_method_put(velhttp *);
void vel_http_set_method_delete(velhttp *);
void vel_http_set_response_body_callback(velhttp *, vel_http_body_cb *, void *context);
void vel_http_set_upload_progress_callback(velhttp *, vel_http_progress_cb *, void *context);
void vel_http_set_download_progress_callback(velhttp *, vel_http_progress_cb *, void *context);
void vel_http_set_progress_callbacks(velhttp *, vel_http_progress_cb *upload, void *uploadcontext,
                                     vel_http_progress_cb *download, void *downloadcontext);
unsigned int vel_http_get_status_code(velhttp *);
const char *vel_http_get_response_header(velhttp *, const char *name);
const char *vel_http_get_method(velhttp *);
vel_error_t vel_http_get_response_header_int(velhttp *, const char *name, int *valueptr);
vel_error_t vel_http_get_response_body(velhttp *, char **bodyptr);
vel_error_t vel_http_get_response_body_and_size(velhttp *, char **bodyptr, size_t *sizeptr);
void vel_http_get_proxy(velhttp *, const char **hostnameptr, unsigned int *portptr);
void vel_http_get_proxy_auth(velhttp *, const char **userptr, const char **passwordptr);
void vel_http_get_ca_information(velhttp *, const char **filenameptr, const char **pathptr);
void vel_http_get_idle_timeout(velhttp *, int *secondsptr, unsigned int *microsecondsptr);
void *vel_http_get_header(velhttp *, void *iterator, const char **headerptr);
const void *vel_http_get_request_body(velhttp *, size_t *bodylenptr);
int vel_http_is_aborted(velhttp *);
int vel_http_is_system_ca_enabled(velhttp *);
velhttpdeprecated *vel_http_get_deprecated(velhttp *);
void vel_http_set_status_code(velhttp *, unsigned int code);
void vel_http_abort(velhttp *);
void vel_http_reset_idle_timeout(velhttp *);
void vel_http_timeout_reset(velhttp *, int *secondsptr, unsigned int *microsecondsptr);
void vel_http_reset_response(velhttp *);
void vel_http_set_active_request(velhttp *, velhttprequest *);

/* HTTP transfers. */
vel_error_t vel_http_perform(velhttp *);
vel_error_t vel_http_timeout_check(velhttp *, int *secondsptr, unsigned int *microsecondsptr);
vel_error_t vel_http_handle_auth_request(velhttp *);
void *vel_http_perform_async(velhttp *, vel_http_completion_cb *, void *context,
                             vel_error_t *result);
void vel_http_complete_request(velhttp *, velhttprequest *, vel_error_t error);
vel_error_t vel_http_write_response_header(velhttp *, const char *name, const char *value);
vel_error_t vel_http_write_response_body(velhttp *, const void *data, size_t size);
void vel_http_progress_upload_check(velhttp *);
void vel_http_progress_upload_force(velhttp *);
void vel_http_progress_download_check(velhttp *);
void vel_http_progress_download_force(velhttp *);
vel_error_t vel_http_generic_get_url_to_fileptr_with_timeout(const char *url, FILE *file,
                                                             int seconds, unsigned int microseconds,
                                                             velhttp *(*createfunc)(void));
vel_error_t vel_http_generic_get_url_to_file(const char *url, const char *filename,
                                             velhttp *(*createfunc)(void));

/* HTTP headers, the lite backend, what only older programs use. */
velhttpheaders *vel_httpheaders_create(void);
void vel_httpheaders_destroy(velhttpheaders *);
void vel_httpheaders_clear(velhttpheaders *);
vel_error_t vel_httpheaders_add(velhttpheaders *, const char *name, const char *value);
vel_error_t vel_httpheaders_parse(velhttpheaders *, const char *buffer, size_t bufferlen);
vel_error_t vel_httpheaders_parse_from_message(velhttpheaders *, const char *buffer,
                                               size_t bufferlen);
const char *vel_httpheaders_get(velhttpheaders *, const char *name);
velhttp *vel_http_lite_create(void);
vel_error_t vel_http_parse_url(const char *url, char **schemeptr, char **hostnameptr,
                               unsigned int *portptr, char **queryptr);
void vel_http_deprecated_allow_invalid_tls_certificate_name(velhttp *);
void vel_http_deprecated_disallow_invalid_tls_certificate_name(velhttp *);
int vel_http_deprecated_is_invalid_tls_certificate_name_allowed(velhttp *);

/* ICAP. */
velicap *vel_icap_create(void);
void vel_icap_destroy(velicap *);
void vel_icap_reset(velicap *);
void vel_icap_set_timeout(velicap *, int seconds, unsigned int microseconds);
void vel_icap_set_method_reqmod(velicap *);
void vel_icap_set_method_respmod(velicap *);
void vel_icap_set_method_options(velicap *);
void vel_icap_set_allow_204(velicap *);
vel_error_t vel_icap_set_url(velicap *, const char *url);
vel_error_t vel_icap_set_request_headers(velicap *, const void *data, size_t size);
vel_error_t vel_icap_set_response_headers(velicap *, const void *reshdr, size_t size);
vel_error_t vel_icap_set_request_body(velicap *, const void *data, size_t size);
vel_error_t vel_icap_set_response_body(velicap *, const void *data, size_t size);
void vel_icap_set_request_body_callback(velicap *,
                                        size_t (*)(void *buffer, size_t size, void *context),
                                        void *context);
const char *vel_icap_build_encapsulated_header(velicap *);
vel_error_t vel_icap_part_is_chunk_encoded(velicap *, unsigned int kind, int *value);
vel_error_t vel_icap_http_part_has_chunked_transfer(velicappart *part, int *value);
unsigned int vel_icap_get_status_code(velicap *);
vel_error_t vel_icap_get_response_icap_headers(velicap *, char **headersptr);
vel_error_t vel_icap_get_response_headers(velicap *, char **headersptr);
vel_error_t vel_icap_get_response_body_and_size(velicap *, char **bodyptr, size_t *sizeptr);
vel_error_t vel_icap_perform(velicap *);

/* URLs. */
velurl *vel_url_create(void);
void vel_url_destroy(velurl *);
vel_error_t vel_url_set_url(velurl *, const char *url);
const char *vel_url_get_scheme(velurl *);
const char *vel_url_get_netloc(velurl *);
const char *vel_url_get_username(velurl *);
const char *vel_url_get_password(velurl *);
const char *vel_url_get_host(velurl *);
const char *vel_url_get_localpart(velurl *);
const char *vel_url_get_path(velurl *);
const char *vel_url_get_params(velurl *);
const char *vel_url_get_query(velurl *);
unsigned int vel_url_get_port(velurl *);

/* Punycode and IDNA: _from_ and _to_warray take the output first, _encode and _decode the input. */
vel_error_t vel_punycode_velurl_decode_from_warray(uint32_t *punycode, size_t *punycodelen,
                                                   const uint32_t *warray, size_t warraylen);
vel_error_t vel_punycode_velurl_decode_to_warray(uint32_t *warray, size_t *warraylen,
                                                 const uint32_t *punycode, size_t punycodelen);
vel_error_t vel_punycode_velurl_encode(const uint32_t *warray, size_t warraylen,
                                       uint32_t **punycode, size_t *punycodelen);
vel_error_t vel_punycode_velurl_decode(const uint32_t *punycode, size_t punycodelen,
                                       uint32_t **warray, size_t *warraylen);
vel_error_t vel_punycode_encode(const char *input, char **output);
vel_error_t vel_punycode_decode(const char *input, char **output);
vel_error_t vel_url_idna_host_to_ascii(const char *host, char **result);
vel_error_t vel_url_idna_host_to_unicode(const char *host, char **result);
vel_error_t vel_url_idna_url_to_ascii(const char *url, char **result);
vel_error_t vel_url_idna_url_to_unicode(const char *url, char **result);

/* Percent encoding. */
char *vel_urlencode(const char *string);
char *vel_urldecode(const char *string);
velurlencode *vel_urlencode_create(void);
void vel_urlencode_destroy(velurlencode *);
void vel_urlencode_reset(velurlencode *);
void vel_urlencode_skip(velurlencode *, const char *skipchars);
vel_error_t vel_urlencode_string(velurlencode *, char **dstptr, const char *src);
vel_error_t vel_urlencode_buffer(velurlencode *, char *dst, size_t *dstlenptr, const char *src,
                                 size_t srclen);
vel_error_t vel_urldecode_string(char **dstptr, const char *src);
vel_error_t vel_urldecode_buffer(char *dst, size_t *dstlenptr, const char *src, size_t srclen);

/* Base64, hex, PEM: vel_base64_decode takes the output first, vel_hex2bin the input first. */
char *vel_base64_encode(const void *buf, size_t len);
char *vel_bin2hex(const void *buf, size_t len);
vel_error_t vel_base64_decode(void **destptr, size_t *destlenptr, const char *source,
                              size_t sourcelen);
vel_error_t vel_hex2bin(const char *hexstring, void **destptr, size_t *destlenptr);
velpem2der *vel_pem2der_create(const void *pembuffer, size_t len, vel_error_t *errorptr);
vel_error_t vel_pem2der_next(velpem2der *, void **bufferptr, size_t *buflenptr);
void vel_pem2der_destroy(velpem2der *);

/* Options: the long name of an option first, then the short one. */
velgetopt *vel_getopt_create(void);
void vel_getopt_destroy(velgetopt *);
void vel_getopt_set_error_callback(velgetopt *,
                                   void (*)(vel_error_t code, const char *option,
                                            const char *argument, void *context),
                                   void *context);
int vel_getopt_set_synopsis(velgetopt *, const char *);
int vel_getopt_set_footer(velgetopt *, const char *);
int vel_getopt_const_string(velgetopt *, const char *longopt, int shortopt, const char **stringptr,
                            const char *optionname, const char *description);
int vel_getopt_int(velgetopt *, const char *longopt, int shortopt, int *intptr,
                   const char *optionname, const char *description);
int vel_getopt_flag_set(velgetopt *, const char *longopt, int shortopt, int *intptr,
                        const char *description);
int vel_getopt_string_callback(velgetopt *, const char *longopt, int shortopt,
                               const char *optionname, const char *description,
                               vel_error_t (*callback)(const char *argument, void *context),
                               void *context);
int vel_getopt_help(velgetopt *, const char *longopt, int shortopt);
int vel_getopt_parse(velgetopt *, int argc, char **argv);
int vel_getopt_optind(velgetopt *);
int vel_getopt_usage(velgetopt *, FILE *out);
int vel_getopt_usage_stdout(velgetopt *);
int vel_getopt_usage_stderr(velgetopt *);

/* Localization. */
vellocalization *vel_localization_create(void);
void vel_localization_destroy(vellocalization *);
vel_error_t vel_localization_load_utf8(vellocalization *, const char *localepath,
                                       const char *textdomain);
char *vel_localization_list_languages(vellocalization *);
vellanguage *vel_localization_language_get(vellocalization *, const char *language);
const char *vel_localization_localize(vellanguage *, const char *string);

/* System helpers. */
char *vel_format(const char *format, ...);
char *vel_uname_sysname(void);
char *vel_uname_nodename(void);
char *vel_uname_version(void);
char *vel_uname_architecture(void);
char *vel_gethostname(void);
int vel_setenv(const char *name, const char *value, int overwrite);
int vel_unsetenv(const char *name);
vellibrary *vel_library_create(const char *filename);
void vel_library_destroy(vellibrary *);
void *vel_library_data(vellibrary *, const char *symbol);
void (*vel_library_function(vellibrary *, const char *symbol))(void);

/* Test harness. */
veltest *vel_test_create(const char *name);
void vel_test_destroy(veltest *);
void vel_test_case_expect_true(veltestcase *, const char *filename, int line,
                               const char *condstring, int condition);
int vel_test_parse_arguments(veltest *, int argc, char **argv);
int vel_test_add(veltest *, void (*testfunction)(veltestcase *, void *context), void *context);
int vel_test_run(veltest *);
int vel_test_summary(veltest *);

VEL_DECLARATIONS_END

/* The one exported object. */
static_assert(sizeof(vel_signal_table) == 16 * sizeof(vel_signal_table[0]), "rows of the table");
static_assert(offsetof(vel_signal_row, callback) == 0, "callback first");
static_assert(offsetof(vel_signal_row, context) == sizeof(void *), "context second");
static_assert(sizeof(vel_signal_row) == 2 * sizeof(void *), "nothing else");

/* Structures that programs hold themselves. */
static_assert(offsetof(vel_list, head) == 0 && offsetof(vel_list, tail) == sizeof(void *),
              "head, tail");
static_assert(sizeof(vel_list) == 2 * sizeof(void *), "a list");
static_assert(offsetof(vel_listlink, next) == 0 && offsetof(vel_listlink, prev) == sizeof(void *),
              "next, prev");
static_assert(sizeof(vel_listlink) == 2 * sizeof(void *), "a link");
static_assert(sizeof(vel_error_t) == sizeof(int), "a result code");

/* Constants. */
static_assert(VEL_ERROR_NONE == 0, "VEL_ERROR_NONE");
static_assert(VEL_ERROR_PERMISSION == 1, "VEL_ERROR_PERMISSION");
static_assert(VEL_ERROR_INTERRUPTED == 4, "VEL_ERROR_INTERRUPTED");
static_assert(VEL_ERROR_IO == 5, "VEL_ERROR_IO");
static_assert(VEL_ERROR_WOULD_BLOCK == 11, "VEL_ERROR_WOULD_BLOCK");
static_assert(VEL_ERROR_NO_MEMORY == 12, "VEL_ERROR_NO_MEMORY");
static_assert(VEL_ERROR_ACCESS == 13, "VEL_ERROR_ACCESS");
static_assert(VEL_ERROR_BAD_ADDRESS == 14, "VEL_ERROR_BAD_ADDRESS");
static_assert(VEL_ERROR_EXISTS == 17, "VEL_ERROR_EXISTS");
static_assert(VEL_ERROR_CROSS_DEVICE == 18, "VEL_ERROR_CROSS_DEVICE");
static_assert(VEL_ERROR_NOT_DIRECTORY == 20, "VEL_ERROR_NOT_DIRECTORY");
static_assert(VEL_ERROR_INVALID_ARGUMENT == 22, "VEL_ERROR_INVALID_ARGUMENT");
static_assert(VEL_ERROR_NO_SPACE == 28, "VEL_ERROR_NO_SPACE");
static_assert(VEL_ERROR_READ_ONLY == 30, "VEL_ERROR_READ_ONLY");
static_assert(VEL_ERROR_TOO_MANY_LINKS == 31, "VEL_ERROR_TOO_MANY_LINKS");
static_assert(VEL_ERROR_BROKEN_PIPE == 32, "VEL_ERROR_BROKEN_PIPE");
static_assert(VEL_ERROR_OUT_OF_RANGE == 34, "VEL_ERROR_OUT_OF_RANGE");
static_assert(VEL_ERROR_NAME_TOO_LONG == 36, "VEL_ERROR_NAME_TOO_LONG");
static_assert(VEL_ERROR_NOT_IMPLEMENTED == 38, "VEL_ERROR_NOT_IMPLEMENTED");
static_assert(VEL_ERROR_SYMLINK_LOOP == 40, "VEL_ERROR_SYMLINK_LOOP");
static_assert(VEL_ERROR_TIMER_EXPIRED == 62, "VEL_ERROR_TIMER_EXPIRED");
static_assert(VEL_ERROR_PROTOCOL == 71, "VEL_ERROR_PROTOCOL");
static_assert(VEL_ERROR_MESSAGE_TOO_LONG == 90, "VEL_ERROR_MESSAGE_TOO_LONG");
static_assert(VEL_ERROR_ADDRESS_IN_USE == 98, "VEL_ERROR_ADDRESS_IN_USE");
static_assert(VEL_ERROR_NETWORK_UNREACHABLE == 101, "VEL_ERROR_NETWORK_UNREACHABLE");
static_assert(VEL_ERROR_CONNECTION_RESET == 104, "VEL_ERROR_CONNECTION_RESET");
static_assert(VEL_ERROR_CONNECTION_TIMED_OUT == 110, "VEL_ERROR_CONNECTION_TIMED_OUT");
static_assert(VEL_ERROR_CONNECTION_REFUSED == 111, "VEL_ERROR_CONNECTION_REFUSED");
static_assert(VEL_ERROR_IN_PROGRESS == 115, "VEL_ERROR_IN_PROGRESS");
static_assert(VEL_ERROR_QUOTA == 122, "VEL_ERROR_QUOTA");
static_assert(VEL_ERROR_CANCELED == 125, "VEL_ERROR_CANCELED");
static_assert(VEL_ERROR_CANNOT_CONNECT == 200, "VEL_ERROR_CANNOT_CONNECT");
static_assert(VEL_ERROR_TIMED_OUT == 201, "VEL_ERROR_TIMED_OUT");
static_assert(VEL_ERROR_GENERIC == 202, "VEL_ERROR_GENERIC");
static_assert(VEL_ERROR_WRITE == 203, "VEL_ERROR_WRITE");
static_assert(VEL_ERROR_END_OF_FILE == 204, "VEL_ERROR_END_OF_FILE");
static_assert(VEL_ERROR_UNSUPPORTED == 205, "VEL_ERROR_UNSUPPORTED");
static_assert(VEL_ERROR_BUSY == 206, "VEL_ERROR_BUSY");
static_assert(VEL_ERROR_NOT_FOUND == 207, "VEL_ERROR_NOT_FOUND");
static_assert(VEL_ERROR_INTERNAL == 208, "VEL_ERROR_INTERNAL");
static_assert(VEL_ERROR_INVALID_SYNTAX == 209, "VEL_ERROR_INVALID_SYNTAX");
static_assert(VEL_ERROR_HOST_UNRESOLVED == 210, "VEL_ERROR_HOST_UNRESOLVED");
static_assert(VEL_ERROR_SERVER == 211, "VEL_ERROR_SERVER");
static_assert(VEL_ERROR_BAD_HANDLE == 212, "VEL_ERROR_BAD_HANDLE");
static_assert(VEL_ERROR_WAKEUP == 213, "VEL_ERROR_WAKEUP");
static_assert(VEL_ERROR_INCOMPLETE == 214, "VEL_ERROR_INCOMPLETE");
static_assert(VEL_ERROR_IDENTIFIER_MISMATCH == 215, "VEL_ERROR_IDENTIFIER_MISMATCH");
static_assert(VEL_ERROR_UNTRUSTED_ROOT_CA == 216, "VEL_ERROR_UNTRUSTED_ROOT_CA");
static_assert(VEL_ERROR_NO_ADDRESSES_IN_FAMILY == 217, "VEL_ERROR_NO_ADDRESSES_IN_FAMILY");
static_assert(VEL_ERROR_TEMPORARY_FAILURE == 218, "VEL_ERROR_TEMPORARY_FAILURE");
static_assert(VEL_ERROR_PERMANENT_FAILURE == 219, "VEL_ERROR_PERMANENT_FAILURE");
static_assert(VEL_ERROR_SELF_SIGNED_CERTIFICATE == 220, "VEL_ERROR_SELF_SIGNED_CERTIFICATE");
static_assert(VEL_ERROR_CERTIFICATE_EXPIRED == 221, "VEL_ERROR_CERTIFICATE_EXPIRED");
static_assert(VEL_ERROR_COUNT == 224, "VEL_ERROR_COUNT");
static_assert(VEL_ICAP_ENCAPSULATED_GEN_REQHDR == 0, "VEL_ICAP_ENCAPSULATED_GEN_REQHDR");
static_assert(VEL_ICAP_ENCAPSULATED_GEN_RESHDR == 1, "VEL_ICAP_ENCAPSULATED_GEN_RESHDR");
static_assert(VEL_ICAP_ENCAPSULATED_GEN_REQBODY == 2, "VEL_ICAP_ENCAPSULATED_GEN_REQBODY");
static_assert(VEL_ICAP_ENCAPSULATED_GEN_RESBODY == 3, "VEL_ICAP_ENCAPSULATED_GEN_RESBODY");
static_assert(VEL_ICAP_ENCAPSULATED_GEN_NUMTYPES == 4, "VEL_ICAP_ENCAPSULATED_GEN_NUMTYPES");
static_assert(VEL_JSON_TYPE_NONE == 0, "VEL_JSON_TYPE_NONE");
static_assert(VEL_JSON_TYPE_OBJECT == 1, "VEL_JSON_TYPE_OBJECT");
static_assert(VEL_JSON_TYPE_ARRAY == 2, "VEL_JSON_TYPE_ARRAY");
static_assert(VEL_JSON_TYPE_STRING == 3, "VEL_JSON_TYPE_STRING");
static_assert(VEL_JSON_TYPE_INTEGER == 4, "VEL_JSON_TYPE_INTEGER");
static_assert(VEL_JSON_TYPE_DOUBLE == 5, "VEL_JSON_TYPE_DOUBLE");
static_assert(VEL_JSON_TYPE_TRUE == 6, "VEL_JSON_TYPE_TRUE");
static_assert(VEL_JSON_TYPE_FALSE == 7, "VEL_JSON_TYPE_FALSE");
static_assert(VEL_JSON_TYPE_NULL == 8, "VEL_JSON_TYPE_NULL");
static_assert(VEL_JSON_TYPE_COUNT == 9, "VEL_JSON_TYPE_COUNT");
static_assert(VEL_SIGNAL_NONE == 0, "VEL_SIGNAL_NONE");
static_assert(VEL_SIGNAL_SIGINT == 2, "VEL_SIGNAL_SIGINT");
static_assert(VEL_SIGNAL_SIGPIPE == 13, "VEL_SIGNAL_SIGPIPE");
static_assert(VEL_SIGNAL_SIGTERM == 15, "VEL_SIGNAL_SIGTERM");
static_assert(VEL_SIGNAL_COUNT == 16, "VEL_SIGNAL_COUNT");
