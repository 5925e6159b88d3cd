#ifndef TESTS_SUPPORT_HTTPFRONT_H
#define TESTS_SUPPORT_HTTPFRONT_H

/* What the tests of setters and getters share: a context whose backend is the test. For one source
 * of a program. */

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/eachfailure.h"
#include "support/httpbackend.h"
#include "support/logcapture.h"
#include "support/rows.h"

using support::asserts;
using support::each_failure;
using support::http_headers;
using lines = std::vector<support::log_line>;
using names = std::vector<std::string>;

inline const char kModule[] = "net/velhttp";
inline const char kUrl[] = "http://host:81/path";

inline support::log_line line(int level, const std::string &text)
{
    return {kModule, level, text};
}

/* What the getters of two texts give. */
inline std::pair<std::string, std::string> pair_of(const char *first, const char *second)
{
    return {first ? first : "NULL", second ? second : "NULL"};
}

class Velhttp : public testing::Test {
  protected:
    void SetUp() override
    {
        http = backend.create();
        ASSERT_NE(http, nullptr);
    }
    void TearDown() override
    {
        if (http)
            vel_http_destroy(http);
    }

    /* Runs an action inside of a transfer that ends well. */
    void inside(const std::function<void()> &action)
    {
        backend.perform = [&](velhttp *) {
            action();
            return VEL_ERROR_NONE;
        };
        EXPECT_EQ(vel_http_perform(http), VEL_ERROR_NONE);
    }

    void perform()
    {
        inside([] {});
    }

    lines logged()
    {
        return log.take_from(kModule);
    }

    std::string proxy()
    {
        const char *hostname = "dirt";
        unsigned int port = 77;
        vel_http_get_proxy(http, &hostname, &port);
        return (hostname ? hostname : "NULL") + (":" + std::to_string(port));
    }

    std::pair<std::string, std::string> auth()
    {
        const char *user = "dirt", *password = "dirt";
        vel_http_get_proxy_auth(http, &user, &password);
        return pair_of(user, password);
    }

    std::pair<std::string, std::string> ca()
    {
        const char *filename = "dirt", *path = "dirt";
        vel_http_get_ca_information(http, &filename, &path);
        return pair_of(filename, path);
    }

    std::string request_body()
    {
        size_t len = 77;
        const void *body = vel_http_get_request_body(http, &len);
        return body ? std::string(static_cast<const char *>(body), len)
                    : "NULL, " + std::to_string(len);
    }

    support::log_capture log;
    support::http_backend backend;
    velhttp *http = nullptr;
};

using nowhere = std::pair<std::string, std::string>;

#endif
