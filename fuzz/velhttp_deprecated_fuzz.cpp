#include <cstring>
#include <string>

#include <vellib/velhttp_deprecated.h>
#include <vellib/vellog.h>
#include <vellib/velmalloc.h>
#include <vellib/velurl.h>

#include "fuzz.h"

int LLVMFuzzerInitialize(int *, char ***)
{
    vel_log_stderr_disable(nullptr);
    return 0;
}

/* Where both parsers take a URL they agree, but for the brackets of the host. */
static void check_same(velurl *parsed, const char *scheme, const std::string &hostname,
                       unsigned int port, const char *query)
{
    const std::string host = vel_url_get_host(parsed), netloc = vel_url_get_netloc(parsed);
    FUZZ_REQUIRE(strcmp(scheme, vel_url_get_scheme(parsed)) == 0);
    FUZZ_REQUIRE(strcmp(query, vel_url_get_localpart(parsed)) == 0);
    FUZZ_REQUIRE(port == vel_url_get_port(parsed));
    FUZZ_REQUIRE(netloc.find(hostname) != std::string::npos);
    if (hostname.starts_with('['))
        FUZZ_REQUIRE(hostname.substr(1, host.size()) == host);
    else
        FUZZ_REQUIRE(hostname == host);
}

/* This parser refuses a colon without a port, and takes nothing that velurl does not. */
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string url(data, data + size);
    url.resize(strlen(url.c_str()));

    velurl *parsed = vel_url_create();
    FUZZ_REQUIRE(parsed);
    const vel_error_t expected = vel_url_set_url(parsed, url.c_str());
    char *scheme, *hostname, *query;
    unsigned int port;
    const vel_error_t error = vel_http_parse_url(url.c_str(), &scheme, &hostname, &port, &query);
    if (error == VEL_ERROR_NONE) {
        FUZZ_REQUIRE(expected == VEL_ERROR_NONE);
        check_same(parsed, scheme, hostname, port, query);
    } else {
        FUZZ_REQUIRE(!scheme && !hostname && !query);
        const std::string netloc =
            expected == VEL_ERROR_NONE ? vel_url_get_netloc(parsed) : std::string();
        FUZZ_REQUIRE(expected != VEL_ERROR_NONE || netloc.ends_with(':'));
    }
    vel_free(scheme);
    vel_free(hostname);
    vel_free(query);
    vel_url_destroy(parsed);
    return 0;
}
