#include <csignal>
#include <memory>

#include <vellib/velbase64.h>
#include <vellib/velurl.h>

#include "peers/client.h"
#include "support/peer.h"
#include "support/rows.h"
#include "support/shared.h"

using namespace peers;
using support::peer;

/* One program that is a proxy, and what is its own way of saying things. */
struct proxy_row {
    std::string name;
    void (*setup)(peer &, const std::string &lines);
    const char *openlines;                /* lets everybody in */
    std::string (*protect)(const peer &); /* the lines that ask for user and secret */
    const char *challenge;                /* its proxy-authenticate header */
    unsigned int wrongstatus;             /* for credentials that are wrong */
    unsigned int unreachablestatus;       /* for an origin that refuses */
};

static std::string protect_tinyproxy(const peer &)
{
    return "BasicAuth user secret\n";
}

static std::string protect_squid(const peer &squid)
{
    EXPECT_EQ(system(("openssl passwd -apr1 -salt vellib00 secret | sed s/^/user:/ >" +
                      squid.path("passwd"))
                         .c_str()),
              0);
    return "auth_param basic program /usr/lib/squid/basic_ncsa_auth @DIR@/passwd\n"
           "auth_param basic children 1\nauth_param basic realm vel\n"
           "acl authed proxy_auth REQUIRED\nhttp_access allow authed\nhttp_access deny all\n";
}

static const proxy_row kProxies[] = {
    {"Tinyproxy", support::setup_tinyproxy, "", protect_tinyproxy, "Basic realm=\"Tinyproxy\"", 401,
     500},
    {"Squid", support::setup_squid, "http_access allow all\n", protect_squid, "Basic realm=\"vel\"",
     407, 503},
};

/* The origin, and each proxy once open and once protected, as long as the tests run. */
struct servers {
    struct pair {
        peer open, closed;
    };

    servers()
    {
        support::setup_nginx(origin, R"(
            location = /r302 { return 302 http://127.0.0.1:@PORT@/4097; }
            location = /path { return 302 /4097; }
            location = /404 { return 404 "nothing here\n"; }
            location = /echo { add_header X-A "$http_x_a"; add_header X-Length $http_content_length;
                add_header X-Credentials "$http_proxy_authorization."; return 200 $request_method; }
        )");
        for (const size_t size : {size_t(0), size_t(1), size_t(4097), size_t(1) << 20})
            write_random(origin.path("html/" + std::to_string(size)), size);
        for (size_t i = 0; i < std::size(kProxies); i++) {
            kProxies[i].setup(pairs[i].open, kProxies[i].openlines);
            kProxies[i].setup(pairs[i].closed, kProxies[i].protect(pairs[i].closed));
        }
    }

    peer origin;
    pair pairs[std::size(kProxies)];
};

[[maybe_unused]] static const auto *kEnvironment =
    testing::AddGlobalTestEnvironment(new support::shared<servers>);

class Proxy : public testing::TestWithParam<proxy_row> {
  protected:
    void SetUp() override
    {
        ASSERT_EQ(origin_.failure(), "");
        ASSERT_EQ(open_.failure(), "");
        ASSERT_EQ(closed_.failure(), "");
    }

    /* Adds the header that lets a user in, which the application can do by itself. */
    static vel_error_t add_credentials(velhttp *velhttp, const std::string &text)
    {
        char *encoded = vel_base64_encode(text.data(), text.size());
        const std::string header = std::string("Proxy-Authorization: Basic ") + encoded;
        vel_free(encoded);
        return vel_http_add_header(velhttp, header.c_str());
    }

    /* The connection was closed after the first 407: the same request again meets its end, either
     * as it is sent or as its answer is waited for. */
    static bool is_end_of_connection(vel_error_t error)
    {
        return error == VEL_ERROR_END_OF_FILE || error == VEL_ERROR_CONNECTION_RESET ||
               error == VEL_ERROR_BROKEN_PIPE;
    }

    void set_proxy(const client &client, const peer &proxy)
    {
        EXPECT_EQ(vel_http_set_proxy(client, "127.0.0.1", proxy.port()), VEL_ERROR_NONE);
    }

    void set_user(const client &client, const peer &proxy, const char *password)
    {
        EXPECT_EQ(vel_http_set_proxy_with_auth(client, "127.0.0.1", proxy.port(), "user", password),
                  VEL_ERROR_NONE);
    }

    size_t index_ = GetParam().name == kProxies[0].name ? 0 : 1;
    const peer &origin_ = support::shared<servers>::all->origin;
    const peer &open_ = support::shared<servers>::all->pairs[index_].open;
    const peer &closed_ = support::shared<servers>::all->pairs[index_].closed;
    support::temporary_directory here_;
    support::log_capture log_;
};

INSTANTIATE_TEST_SUITE_P(Through, Proxy, testing::ValuesIn(kProxies), support::row_name());

/* ---- open proxies ---------------------------------------------------------------------------- */

TEST_P(Proxy, Digests)
{
    for (const std::string name : {"0", "1", "4097", "1048576"}) {
        SCOPED_TRACE(name);
        client client;
        set_proxy(client, open_);
        EXPECT_EQ(client.perform(origin_.url("/" + name)), VEL_ERROR_NONE);
        EXPECT_EQ(client.status(), 200U);
        EXPECT_THAT(client.header("via"), testing::Not("<none>"));
        EXPECT_EQ(digest_of("body"), digest_of(origin_.path("html/" + name)));
        EXPECT_EQ(http_lines(&log_), (log_lines{lite(13, "the HTTP status code is 200")}));
    }
}

TEST_P(Proxy, EachPassOfARedirect)
{
    for (const std::string target : {"/r302", "/path"}) {
        client client;
        set_proxy(client, open_);
        EXPECT_EQ(client.perform(origin_.url(target)), VEL_ERROR_NONE);
        EXPECT_EQ(client.status(), 200U);
        EXPECT_THAT(client.header("via"), testing::Not("<none>"));
        EXPECT_EQ(digest_of("body"), digest_of(origin_.path("html/4097")));
    }
}

TEST_P(Proxy, StatusOfTheOrigin)
{
    client client;
    set_proxy(client, open_);
    EXPECT_EQ(client.perform(origin_.url("/404")), VEL_ERROR_NONE);
    EXPECT_EQ(client.status(), 404U);
    EXPECT_EQ(client.body(), "nothing here\n");
}

TEST_P(Proxy, MethodHeadersAndBody)
{
    client client;
    set_proxy(client, open_);
    vel_http_set_method_post(client);
    EXPECT_EQ(vel_http_add_header(client, "X-A: 1"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_set_request_body(client, "12345", 5), VEL_ERROR_NONE);
    EXPECT_EQ(client.perform(origin_.url("/echo")), VEL_ERROR_NONE);
    EXPECT_EQ(client.body(), "POST");
    EXPECT_EQ(client.header("x-a"), "1");
    EXPECT_EQ(client.header("x-length"), "5");
}

TEST_P(Proxy, OriginThatRefusesIsTheProxysAnswer)
{
    peer gone;
    support::setup_nginx(gone, "");
    gone.stop();
    client client;
    set_proxy(client, open_);
    EXPECT_EQ(client.perform(gone.url("/")), VEL_ERROR_NONE);
    EXPECT_EQ(client.status(), GetParam().unreachablestatus);
}

TEST_P(Proxy, ThatRefusesIsAnError)
{
    peer gone;
    support::setup_nginx(gone, "");
    gone.stop();
    client client;
    set_proxy(client, gone);
    EXPECT_EQ(client.perform(origin_.url("/1")), VEL_ERROR_CONNECTION_REFUSED);
    EXPECT_EQ(http_lines(&log_),
              (log_lines{lite(7, with_error("connection failed", VEL_ERROR_CONNECTION_REFUSED)),
                         lite(7, with_error("connecting to proxy 127.0.0.1 port " +
                                                std::to_string(gone.port()) + " failed",
                                            VEL_ERROR_CONNECTION_REFUSED))}));
}

TEST_P(Proxy, TlsIsRefusedWithoutConnecting)
{
    client client;
    set_proxy(client, open_);
    EXPECT_EQ(client.perform("https://127.0.0.1/"), VEL_ERROR_UNSUPPORTED);
    EXPECT_EQ(http_lines(&log_),
              (log_lines{lite(6, "the URL 'https://127.0.0.1/' must start with http://")}));
}

/* An open proxy never asks, so a user changes nothing and is told to nobody. */
TEST_P(Proxy, UserIsNotToldUnasked)
{
    client client;
    set_user(client, open_, "secret");
    EXPECT_EQ(client.perform(origin_.url("/echo")), VEL_ERROR_NONE);
    EXPECT_EQ(client.status(), 200U);
    EXPECT_EQ(client.header("x-credentials"), ".");
}

/* ---- protected proxies ----------------------------------------------------------------------- */

TEST_P(Proxy, NoUserRepeatsTheRequestOnAClosedConnection)
{
    client client;
    set_proxy(client, closed_);
    const vel_error_t error = client.perform(origin_.url("/1"));
    EXPECT_PRED1(is_end_of_connection, error);
    EXPECT_EQ(client.status(), 407U);
    EXPECT_EQ(client.body(), "");

    log_lines lines = http_lines(&log_);
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(lines[0], lite(13, "the HTTP status code is 407"));
    EXPECT_EQ(lines[1], front(7, "No user defined for proxy authentication"));
    EXPECT_THAT(lines.back().text, testing::EndsWith(with_error("", error)));
}

TEST_P(Proxy, UserEndsWithoutAStatus)
{
    client client;
    set_user(client, closed_, "secret");
    EXPECT_EQ(client.perform(origin_.url("/1")), VEL_ERROR_NONE);
    EXPECT_EQ(client.status(), 0U);
    EXPECT_EQ(client.body(), "");
    EXPECT_EQ(http_lines(&log_), (log_lines{lite(13, "the HTTP status code is 407"),
                                            front(10, "HTTP proxy user: 'user'"),
                                            front(10, "Retry with Basic authentication")}));
}

/* The credentials are never sent, so it makes no difference whether they are right. */
TEST_P(Proxy, UserWithWrongPasswordEndsWithoutAStatus)
{
    client client;
    set_user(client, closed_, "wrong");
    EXPECT_EQ(client.perform(origin_.url("/1")), VEL_ERROR_NONE);
    EXPECT_EQ(client.status(), 0U);
    EXPECT_EQ(client.body(), "");
}

/* And nothing of them is left for the next transfer. */
TEST_P(Proxy, UserEndsWithoutAStatusEachTime)
{
    client client;
    set_user(client, closed_, "secret");
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(client.perform(origin_.url("/1")), VEL_ERROR_NONE);
        EXPECT_EQ(client.status(), 0U);
    }
}

TEST_P(Proxy, HeaderWithCredentialsIsLetIn)
{
    for (const std::string name : {"1", "1048576"}) {
        client client;
        set_proxy(client, closed_);
        EXPECT_EQ(add_credentials(client, "user:secret"), VEL_ERROR_NONE);
        EXPECT_EQ(client.perform(origin_.url("/" + name)), VEL_ERROR_NONE);
        EXPECT_EQ(client.status(), 200U);
        EXPECT_EQ(digest_of("body"), digest_of(origin_.path("html/" + name)));
    }
}

TEST_P(Proxy, CredentialsDoNotReachTheOrigin)
{
    client client;
    set_proxy(client, closed_);
    EXPECT_EQ(add_credentials(client, "user:secret"), VEL_ERROR_NONE);
    EXPECT_EQ(client.perform(origin_.url("/echo")), VEL_ERROR_NONE);
    EXPECT_EQ(client.header("x-credentials"), ".");
}

/* The header is for one pass alone, as the next may go elsewhere. */
TEST_P(Proxy, HeaderIsForgottenWithARedirect)
{
    client client;
    set_proxy(client, closed_);
    EXPECT_EQ(add_credentials(client, "user:secret"), VEL_ERROR_NONE);
    EXPECT_PRED1(is_end_of_connection, client.perform(origin_.url("/r302")));
    EXPECT_EQ(client.status(), 407U);
    const log_lines lines = http_lines(&log_);
    ASSERT_GE(lines.size(), 4U);
    EXPECT_EQ(lines[0], lite(13, "the HTTP status code is 302"));
    EXPECT_EQ(lines[1], front(13, "Got HTTP redirect (301/302)"));
    EXPECT_EQ(lines[2], lite(13, "the HTTP status code is 407"));
}

struct chooser {
    unsigned int port;
    std::vector<std::string> asked;
};

static vel_error_t choose_proxy(velhttp *velhttp, const char *scheme, const char *host,
                                unsigned int port, void *context)
{
    auto *chooser = static_cast<struct chooser *>(context);
    chooser->asked.push_back(std::string(scheme) + " " + host + " " + std::to_string(port));
    /* "user:secret" */
    EXPECT_EQ(vel_http_add_header(velhttp, "proxy-authorization: Basic dXNlcjpzZWNyZXQ="),
              VEL_ERROR_NONE);
    return vel_http_set_proxy_with_auth(velhttp, "127.0.0.1", chooser->port, "user", "secret");
}

/* A proxy callback can name proxy and credentials anew for each pass. */
TEST_P(Proxy, CallbackGivesCredentialsToEachPass)
{
    client client;
    chooser chooser = {closed_.port(), {}};
    vel_http_set_proxy_callback(client, choose_proxy, &chooser);
    EXPECT_EQ(client.perform(origin_.url("/r302")), VEL_ERROR_NONE);
    EXPECT_EQ(client.status(), 200U);
    EXPECT_EQ(digest_of("body"), digest_of(origin_.path("html/4097")));
    const std::string origin = "http 127.0.0.1 " + std::to_string(origin_.port());
    EXPECT_EQ(chooser.asked, (std::vector<std::string>{origin, origin}));
}

/* What a wrong password gets is the proxy's affair: one asks again, the other refuses. */
TEST_P(Proxy, HeaderWithWrongPassword)
{
    client client;
    set_proxy(client, closed_);
    EXPECT_EQ(add_credentials(client, "user:wrong"), VEL_ERROR_NONE);
    const vel_error_t error = client.perform(origin_.url("/1"));
    EXPECT_EQ(client.status(), GetParam().wrongstatus);
    EXPECT_EQ(error != VEL_ERROR_NONE, GetParam().wrongstatus == 407);
    EXPECT_TRUE(error == VEL_ERROR_NONE || is_end_of_connection(error)) << error;
    EXPECT_EQ(client.body(), "");
}

TEST_P(Proxy, HeaderWithWrongPasswordBesideAUser)
{
    client client;
    set_user(client, closed_, "secret");
    EXPECT_EQ(add_credentials(client, "user:wrong"), VEL_ERROR_NONE);
    EXPECT_EQ(client.perform(origin_.url("/1")), VEL_ERROR_NONE);
    EXPECT_EQ(client.status(), GetParam().wrongstatus == 407 ? 0 : GetParam().wrongstatus);
    EXPECT_EQ(client.body(), "");
}

TEST_P(Proxy, ChallengeStaysReadable)
{
    client client;
    set_proxy(client, closed_);
    client.perform(origin_.url("/1"));
    EXPECT_EQ(client.header("proxy-authenticate"), GetParam().challenge);
}

/* Asked as if it were the origin, it asks for a user all the same; but no proxy is set. */
TEST_P(Proxy, NotSetAsProxy)
{
    client client;
    const std::string url = closed_.url("/");
    const vel_error_t error = client.perform(url);
    EXPECT_EQ(error, VEL_ERROR_NONE);
    EXPECT_NE(client.status(), 200U);
    if (client.status() == 407) {
        EXPECT_EQ(http_lines(&log_).back(), front(7, "Proxy server is not defined"));
    }
}

TEST_P(Proxy, PasswordIsNeverLogged)
{
    client client;
    set_user(client, closed_, "secret");
    EXPECT_EQ(add_credentials(client, "user:secret"), VEL_ERROR_NONE);
    client.perform(origin_.url("/r302"));
    for (const support::log_line &line : log_.take()) {
        EXPECT_THAT(line.text, testing::Not(testing::HasSubstr("secret")));
        EXPECT_THAT(line.text, testing::Not(testing::HasSubstr("dXNlcjpzZWNyZXQ")));
    }
}
