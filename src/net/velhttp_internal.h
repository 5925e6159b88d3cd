#ifndef VELLIB_NET_VELHTTP_INTERNAL_H
#define VELLIB_NET_VELHTTP_INTERNAL_H

/* What the sources of net/velhttp share. All of them log as net/velhttp. */

#include <atomic>

#include <vellib/velhttp.h>
#include <vellib/velhttpheaders.h>
#include <vellib/vellist.h>
#include <vellib/veltimeout.h>

constexpr int kVelHttpIdleSeconds = 30;
constexpr int kVelHttpTickSeconds = 1;
constexpr char kVelHttpProxyAuthorization[] = "proxy-authorization";

enum vel_http_method : unsigned int {
    VEL_HTTP_METHOD_NONE = 0, /* only while the name of a custom method could not be stored */
    VEL_HTTP_METHOD_CUSTOM = 1,
    VEL_HTTP_METHOD_GET = 2,
    VEL_HTTP_METHOD_POST = 3,
    VEL_HTTP_METHOD_PUT = 4,
    VEL_HTTP_METHOD_DELETE = 5,
};

struct velhttpdeprecated {
    int invalidtlscertificatename; /* 1: take a certificate whose name does not match */
};

struct velhttprequestheader {
    velhttprequestheader *next; /* first two fields: the link of a vel_list */
    velhttprequestheader *prev;
    char *text; /* owned; a line without its end */
};

struct velhttpprogress {
    vel_http_progress_cb *callback;
    void *context;
    int64_t total; /* bytes; -1 is unknown */
    int64_t current;
};

struct velhttprequest {
    struct velhttp *velhttp; /* the context that made it */

    vel_http_proxy_cb *proxycallback;
    void *proxycallbackcontext;
    char *proxyhostname; /* owned; NULL is no proxy */
    unsigned int proxyport;
    char *proxyuser;          /* owned */
    char *proxypassword;      /* owned */
    unsigned int authoffered; /* schemes that the proxy named, as bits */
    size_t authindex;         /* position in the order of schemes */
    unsigned int authmethod;  /* scheme started last */
    unsigned int authretries; /* retries made with credentials */

    int timeoutseconds; /* limit of the whole transfer; negative is none */
    unsigned int timeoutmicroseconds;
    struct veltimeout *veltimeout; /* owned; its countdown */
    int idleseconds;               /* limit without traffic; negative is none */
    unsigned int idlemicroseconds;
    struct veltimeout *idletimeout; /* owned; its countdown */

    int systemca;
    char *cafilename; /* owned */
    char *capath;     /* owned */

    char *baseurl; /* owned; scheme://netloc of the URL, without path */
    vel_http_method method;
    char *custommethod;      /* owned; may outlive a change of method */
    unsigned int statuscode; /* 0 until a status line was read */
    std::atomic<int> aborted;

    struct veltimeout *progresstimeout; /* owned; one tick for both directions */
    velhttpprogress uploadprogress;
    velhttpprogress downloadprogress;

    vel_list *requestheaderlist; /* owned; of velhttprequestheader */
    void *requestbody;           /* owned */
    size_t requestbodylen;

    struct velhttpheaders *responseheaders; /* owned */
    vel_http_body_cb *responsebodycallback; /* NULL: the body is kept in responsedata */
    void *responsebodycontext;
    char *responsedata;          /* owned */
    size_t responsedatalen;      /* bytes handed out to readers, always the bytes stored */
    size_t responsedatacapacity; /* bytes allocated */
    size_t responsedatapos;      /* bytes stored */

    vel_http_completion_cb *completioncallback;
    void *completioncontext;
    velhttpdeprecated deprecated;
};

struct velhttp {
    void *asynccontext;
    velhttprequest *preparereq;              /* owned; never NULL once created */
    std::atomic<velhttprequest *> activereq; /* vel_http_abort reads it from any thread */
    int inproxycallback;                     /* 1: the proxy setters address activereq */
    void *context;                           /* the backend's */
    vel_http_destroy_cb *destroycallback;
    vel_http_reset_cb *resetcallback;
    vel_http_url_cb *urlcallback;
    vel_http_perform_cb *performcallback;
    vel_http_perform_async_cb *performasynccallback;
};

/* velhttp_request.cpp: one request. */

/* Creates a request with default settings, or logs and returns NULL. */
velhttprequest *vel_http_request_create(struct velhttp *velhttp);
void vel_http_request_destroy(velhttprequest *request);

vel_error_t vel_http_request_add_header(velhttprequest *request, const char *header);
void vel_http_request_remove_header(velhttprequest *request, const char *headername);
void vel_http_cleanup_request_headers(velhttprequest *request);

/* Forgets the callback and the numbers of one direction. */
void vel_http_progress_reset(velhttpprogress *progress);
void vel_http_request_free_response_data(velhttprequest *request);
void vel_http_request_reset_response(velhttprequest *request);
void vel_http_request_reset_proxy_auth(velhttprequest *request);

/* velhttp_progress.cpp: the tick. */

/* Starts the three timers of a transfer. */
void vel_http_request_start_timers(velhttprequest *request);
/* Sets the numbers of both directions back and tells the download callback. */
void vel_http_request_restart_progress(velhttprequest *request);
void vel_http_request_progress_download_force(velhttprequest *request);
/* Calls the download callback if its tick is due, with a message of its own on an abort. */
void vel_http_progress_check(velhttprequest *request);

/* velhttp_get.cpp */

/* The active request. Without one, logs message at level 6 and returns NULL. */
velhttprequest *vel_http_get_active_request(struct velhttp *velhttp, const char *message);

#endif
