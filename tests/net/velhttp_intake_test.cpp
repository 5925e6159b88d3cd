#include "support/httpperform.h"
#include "support/rows.h"

static const int64_t kTwoToThe63rd = INT64_MIN; /* as a size */

/* Intake. */

struct length_case {
    const char *name;
    const char *header;
    const char *value;
    int64_t total;
    int error; /* 0 for no complaint */
};

static void PrintTo(const length_case &one, std::ostream *out)
{
    *out << one.header << ": " << one.value;
}

class VelhttpLength : public VelhttpPerform, public testing::WithParamInterface<length_case> {};

TEST_P(VelhttpLength, BecomesTheTotal)
{
    const length_case &row = GetParam();
    EXPECT_EQ(inside([&] {
                  vel_http_write_response_header(http, "content-length", "77");
                  EXPECT_EQ(vel_http_write_response_header(http, row.header, row.value),
                            VEL_ERROR_NONE);
                  EXPECT_EQ(downloaded(), (state{0, row.total}));
              }),
              VEL_ERROR_NONE);
    EXPECT_STREQ(vel_http_get_response_header(http, row.header), row.value);
    if (row.error == 0)
        EXPECT_EQ(logged(), lines());
    else
        EXPECT_EQ(logged(), (lines{line(7, std::string("parsing content-length '") + row.value +
                                               "' failed, error " + std::to_string(row.error) +
                                               " (" + vel_error_string(row.error) + ")"),
                                   line(6, "considering the content length unknown")}));
}

static const length_case kLengthCases[] = {
    {"Plain", "content-length", "12", 12, 0},
    {"AnyCase", "Content-LENGTH", "12", 12, 0},
    {"Zero", "Content-Length", "0", 0, 0},
    {"Blanks", "Content-Length", " \t+12", 12, 0},
    {"Negative", "Content-Length", "-12", -12, 0},
    {"Largest", "Content-Length", "9223372036854775807", INT64_MAX, 0},
    {"TooLarge", "Content-Length", "9223372036854775808", -1, VEL_ERROR_OUT_OF_RANGE},
    {"Empty", "Content-Length", "", -1, VEL_ERROR_INVALID_SYNTAX},
    {"Text", "Content-Length", "x", -1, VEL_ERROR_INVALID_SYNTAX},
    {"Tail", "Content-Length", "12x", -1, VEL_ERROR_INCOMPLETE},
    {"TrailingBlank", "Content-Length", "12 ", -1, VEL_ERROR_INCOMPLETE},
    {"OtherHeader", "Content-Lengt", "12", 77, 0},
    {"LongerHeader", "Content-Length2", "12", 77, 0},
    {"BlankInHeader", "Content-Length ", "12", 77, 0},
};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpLength, testing::ValuesIn(kLengthCases),
                         support::row_name());

TEST_F(VelhttpPerform, BodyIsKeptInMemory)
{
    EXPECT_EQ(inside([&] {
                  vel_http_set_status_code(http, 200);
                  std::string all;
                  for (int piece = 1; piece <= 300; piece++) {
                      const std::string bytes(static_cast<size_t>(piece * 7 % 50 + 1),
                                              static_cast<char>(piece));
                      all += bytes;
                      EXPECT_EQ(vel_http_write_response_body(http, bytes.data(), bytes.size()),
                                VEL_ERROR_NONE);
                      if (piece % 50 == 1) {
                          EXPECT_EQ(response_body(), all);
                      }
                      EXPECT_EQ(downloaded(), (state{all.size(), -1}));
                  }
                  EXPECT_EQ(response_body(), all);
              }),
              VEL_ERROR_NONE);
    EXPECT_EQ(logged(), lines());
}

TEST_F(VelhttpPerform, BodyWithoutMemory)
{
    support::warm_log(log);
    EXPECT_EQ(inside([&] {
                  {
                      support::malloc_watch watch(1, 64);
                      EXPECT_EQ(vel_http_write_response_body(http, "123", 3), VEL_ERROR_NO_MEMORY);
                  }
                  EXPECT_EQ(logged(),
                            lines{line(7, "not enough memory for response body (3 bytes)")});
                  EXPECT_EQ(downloaded(), (state{0, -1}));
                  const std::string large(100000, 'x');
                  EXPECT_EQ(vel_http_write_response_body(http, "abc", 3), VEL_ERROR_NONE);
                  {
                      support::malloc_watch watch(1, 64);
                      EXPECT_EQ(vel_http_write_response_body(http, large.data(), large.size()),
                                VEL_ERROR_NO_MEMORY);
                  }
                  EXPECT_EQ(logged(),
                            lines{line(7, "not enough memory for response body (100003 bytes)")});
                  EXPECT_EQ(response_body(), "abc");
                  EXPECT_EQ(vel_http_write_response_body(http, "de", 2), VEL_ERROR_NONE);
                  EXPECT_EQ(response_body(), "abcde");
              }),
              VEL_ERROR_NONE);
}

/* A body takes twice what it has, and what it needs where there is no memory for that. */
TEST_F(VelhttpPerform, BodyWithMemoryForWhatItNeedsAlone)
{
    support::warm_log(log);
    EXPECT_EQ(
        inside([&] {
            std::string all(100, 'a');
            EXPECT_EQ(vel_http_write_response_body(http, all.data(), all.size()), VEL_ERROR_NONE);
            for (char c = 'b'; c < 'f'; c++) {
                support::malloc_watch watch(1);
                EXPECT_EQ(vel_http_write_response_body(http, &c, 1), VEL_ERROR_NONE);
                EXPECT_EQ(watch.sizes(), (std::vector<size_t>{2 * all.size(), all.size() + 1}));
                all += c;
            }
            EXPECT_EQ(response_body(), all);
        }),
        VEL_ERROR_NONE);
    EXPECT_EQ(logged(), lines());
}

TEST_F(VelhttpPerform, BodyGoesToTheCallback)
{
    std::string received;
    body_function take = [&](const void *data, size_t size) {
        received.append(static_cast<const char *>(data), size);
        return VEL_ERROR_NONE;
    };
    vel_http_set_response_body_callback(http, call_body, &take);
    EXPECT_EQ(inside([&] {
                  vel_http_set_status_code(http, 404);
                  EXPECT_EQ(vel_http_write_response_body(http, "ab\0c", 4), VEL_ERROR_NONE);
                  EXPECT_EQ(vel_http_write_response_body(http, "d", 1), VEL_ERROR_NONE);
                  EXPECT_EQ(downloaded(), (state{5, -1}));
              }),
              VEL_ERROR_NONE);
    EXPECT_EQ(received, std::string("ab\0cd", 5));
    EXPECT_EQ(response_body(), "none");
}

TEST_F(VelhttpPerform, BodyCallbackFails)
{
    body_function take = [&](const void *, size_t size) -> vel_error_t {
        return size == 3 ? -17 : VEL_ERROR_NONE;
    };
    vel_http_set_response_body_callback(http, call_body, &take);
    EXPECT_EQ(inside([&] {
                  EXPECT_EQ(vel_http_write_response_body(http, "ab", 2), VEL_ERROR_NONE);
                  EXPECT_EQ(vel_http_write_response_body(http, "abc", 3), -17);
                  EXPECT_EQ(downloaded(), (state{2, -1}));
                  EXPECT_EQ(vel_http_write_response_body(http, "d", 1), VEL_ERROR_NONE);
                  EXPECT_EQ(downloaded(), (state{3, -1}));
              }),
              VEL_ERROR_NONE);
    EXPECT_EQ(logged(), lines());
}

TEST_F(VelhttpPerform, BodiesOfSomeStatusesAreDroppedAndCounted)
{
    for (const unsigned int status : {301u, 302u, 401u, 407u, 300u, 303u, 400u, 403u, 404u}) {
        const bool drops = status == 301 || status == 302 || status == 401 || status == 407;
        size_t called = 0;
        body_function take = [&](const void *, size_t) {
            called++;
            return VEL_ERROR_NONE;
        };
        EXPECT_EQ(vel_http_reset(http), VEL_ERROR_NONE);
        EXPECT_EQ(inside([&] {
                      vel_http_set_status_code(http, status);
                      EXPECT_EQ(vel_http_write_response_body(http, "abc", 3), VEL_ERROR_NONE);
                      EXPECT_EQ(downloaded(), (state{3, -1}));
                      EXPECT_EQ(response_body(), drops ? "none" : "abc");
                      vel_http_set_response_body_callback(http, call_body, &take);
                      EXPECT_EQ(vel_http_write_response_body(http, "de", 2), VEL_ERROR_NONE);
                      EXPECT_EQ(downloaded(), (state{5, -1}));
                      EXPECT_EQ(called, drops ? 0u : 1u);
                      vel_http_set_status_code(http, 200);
                  }),
                  VEL_ERROR_NONE);
    }
}

TEST_F(VelhttpPerform, BodyIntakeTellsTheDownload)
{
    progress download;
    vel_http_set_download_progress_callback(http, progress::callback, &download);
    EXPECT_EQ(inside([&] {
                  download.calls.clear();
                  vel_http_write_response_header(http, "Content-Length", "10");
                  vel_http_write_response_body(http, "abc", 3);
                  EXPECT_EQ(download.calls, told());
                  pass(1);
                  vel_http_write_response_body(http, "de", 2);
                  EXPECT_EQ(download.calls, (told{{5, 10}}));
                  vel_http_write_response_body(http, "f", 1);
                  EXPECT_EQ(download.calls, (told{{5, 10}}));
                  EXPECT_EQ(logged(), lines());
                  pass(1);
                  download.result = 8;
                  EXPECT_EQ(vel_http_write_response_body(http, "g", 1), VEL_ERROR_NONE);
                  EXPECT_EQ(logged(), (lines{line(7, "The progress callback returned 8, "
                                                     "aborting the transfer"),
                                             kAborting}));
                  EXPECT_EQ(vel_http_is_aborted(http), 1);
              }),
              VEL_ERROR_NONE);
}

TEST_F(VelhttpPerform, BodySizesBeyondTheSignedRange)
{
    const auto huge = static_cast<size_t>(kTwoToThe63rd);
    size_t called = 0;
    body_function take = [&](const void *, size_t) {
        called++;
        return VEL_ERROR_NONE;
    };
    vel_http_set_response_body_callback(http, call_body, &take);
    const support::log_line large =
        line(6, "The data size is so large that it doesn't fit in a 64-bit signed integer");
    const support::log_line total =
        line(6, "The total data size is so large that it doesn't fit in a 64-bit signed integer");
    for (const unsigned int status : {200u, 407u}) {
        called = 0;
        EXPECT_EQ(
            inside([&] {
                vel_http_set_status_code(http, status);
                EXPECT_EQ(vel_http_write_response_body(http, "", huge), VEL_ERROR_OUT_OF_RANGE);
                EXPECT_EQ(vel_http_write_response_body(http, "", SIZE_MAX), VEL_ERROR_OUT_OF_RANGE);
                EXPECT_EQ(logged(), (lines{large, large}));
                EXPECT_EQ(vel_http_write_response_body(http, "", huge - 1), VEL_ERROR_NONE);
                EXPECT_EQ(downloaded(), (state{INT64_MAX, -1}));
                EXPECT_EQ(vel_http_write_response_body(http, "", 1), VEL_ERROR_OUT_OF_RANGE);
                EXPECT_EQ(vel_http_write_response_body(http, "", huge - 1), VEL_ERROR_OUT_OF_RANGE);
                EXPECT_EQ(logged(), (lines{total, total}));
                EXPECT_EQ(downloaded(), (state{INT64_MAX, -1}));
            }),
            VEL_ERROR_NONE);
        EXPECT_EQ(called, status == 200 ? 5u : 0u);
    }
}

/* Proxy authentication. */

class VelhttpAuth : public VelhttpPerform {
  protected:
    void SetUp() override
    {
        VelhttpPerform::SetUp();
        EXPECT_EQ(vel_http_set_proxy_with_auth(http, "proxy", 3128, "user", "secret"),
                  VEL_ERROR_NONE);
    }

    /* Receives a 407 that offers these schemes, and has it handled. */
    vel_error_t refused(const std::vector<const char *> &schemes)
    {
        vel_http_set_status_code(http, 407);
        for (const char *scheme : schemes)
            EXPECT_EQ(vel_http_write_response_header(http, "Proxy-Authenticate", scheme),
                      VEL_ERROR_NONE);
        return vel_http_handle_auth_request(http);
    }

    const std::string credentials_ = "proxy-authorization: Basic dXNlcjpzZWNyZXQ=";
    const lines started_ = {line(10, "HTTP proxy user: 'user'"),
                            line(10, "Retry with Basic authentication")};
};

TEST_F(VelhttpAuth, BasicAddsTheHeader)
{
    EXPECT_EQ(vel_http_add_header(http, "a: 1"), VEL_ERROR_NONE);
    EXPECT_EQ(inside([&] {
                  vel_http_set_status_code(http, 407);
                  vel_http_write_response_header(http, "content-length", "5");
                  vel_http_write_response_body(http, "no", 2);
                  EXPECT_EQ(refused({"Basic realm=\"x\""}), VEL_ERROR_NONE);
                  EXPECT_EQ(logged(), started_);
                  EXPECT_EQ(http_headers(http), (names{"a: 1", credentials_}));
                  EXPECT_EQ(vel_http_get_status_code(http), 0u);
                  EXPECT_EQ(vel_http_get_response_header(http, "content-length"), nullptr);
                  EXPECT_EQ(downloaded(), (state{0, -1}));
              }),
              VEL_ERROR_NONE);
    EXPECT_EQ(http_headers(http), names());
}

TEST_F(VelhttpAuth, EmptyAndMissingPassword)
{
    for (const char *password : {static_cast<const char *>(nullptr), ""}) {
        EXPECT_EQ(vel_http_set_proxy_with_auth(http, "proxy", 3128, "u:v", password),
                  VEL_ERROR_NONE);
        EXPECT_EQ(inside([&] {
                      EXPECT_EQ(refused({"Basic"}), VEL_ERROR_NONE);
                      EXPECT_EQ(http_headers(http), names{"proxy-authorization: Basic dTp2Og=="});
                  }),
                  VEL_ERROR_NONE);
    }
}

struct scheme_case {
    const char *name;
    std::vector<const char *> offers;
    bool basic;
};

static void PrintTo(const scheme_case &one, std::ostream *out)
{
    *out << testing::PrintToString(one.offers);
}

class VelhttpScheme : public VelhttpAuth, public testing::WithParamInterface<scheme_case> {};

TEST_P(VelhttpScheme, IsBasicOrNothing)
{
    EXPECT_EQ(inside([&] {
                  EXPECT_EQ(refused(GetParam().offers),
                            GetParam().basic ? VEL_ERROR_NONE : VEL_ERROR_NOT_FOUND);
                  EXPECT_EQ(http_headers(http), GetParam().basic ? names{credentials_} : names());
                  EXPECT_EQ(vel_http_get_status_code(http), GetParam().basic ? 0u : 407u);
              }),
              VEL_ERROR_NONE);
    EXPECT_EQ(logged(), GetParam().basic ? started_ : lines());
}

static const scheme_case kSchemeCases[] = {
    {"Basic", {"Basic"}, true},
    {"AnyCase", {"bASIC realm=x"}, true},
    {"Blanks", {" \t Basic"}, true},
    {"Prefix", {"Basically"}, true},
    {"Shorter", {"Basi"}, false},
    {"NotFirst", {"x Basic"}, false},
    {"SecondOfOneHeader", {"Digest, Basic"}, false},
    {"SecondHeader", {"Digest realm=x", "Basic realm=x"}, true},
    {"FirstHeader", {"Basic realm=x", "NTLM"}, true},
    {"Digest", {"Digest"}, false},
    {"Ntlm", {"NTLM"}, false},
    {"Negotiate", {"negotiate xyz"}, false},
    {"AllOthers", {"Digest", "NTLM", "Negotiate"}, false},
    {"Empty", {""}, false},
    {"None", {}, false},
};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpScheme, testing::ValuesIn(kSchemeCases),
                         support::row_name());

TEST_F(VelhttpAuth, HeaderNameHasNoCase)
{
    EXPECT_EQ(inside([&] {
                  vel_http_set_status_code(http, 407);
                  vel_http_write_response_header(http, "PROXY-authenticate", "Basic");
                  EXPECT_EQ(vel_http_handle_auth_request(http), VEL_ERROR_NONE);
              }),
              VEL_ERROR_NONE);
    EXPECT_EQ(inside([&] {
                  vel_http_set_status_code(http, 407);
                  vel_http_write_response_header(http, "WWW-Authenticate", "Basic");
                  EXPECT_EQ(vel_http_handle_auth_request(http), VEL_ERROR_NOT_FOUND);
              }),
              VEL_ERROR_NONE);
}

TEST_F(VelhttpAuth, CredentialsAreTriedOnce)
{
    EXPECT_EQ(inside([&] {
                  EXPECT_EQ(refused({"Basic"}), VEL_ERROR_NONE);
                  EXPECT_EQ(logged(), started_);
                  /* What was offered is kept, so no header is needed again. */
                  EXPECT_EQ(refused({}), VEL_ERROR_NOT_FOUND);
                  EXPECT_EQ(logged(), lines());
                  EXPECT_EQ(http_headers(http), names{credentials_});
                  EXPECT_EQ(vel_http_get_status_code(http), 407u);
                  /* That set the state back. */
                  EXPECT_EQ(refused({}), VEL_ERROR_NOT_FOUND);
                  EXPECT_EQ(refused({"Basic"}), VEL_ERROR_NONE);
                  EXPECT_EQ(http_headers(http), names{credentials_}) << "replaced, not added";
              }),
              VEL_ERROR_NONE);
}

TEST_F(VelhttpAuth, StateIsSetBackBetweenPasses)
{
    backend.perform = [&](velhttp *) {
        const size_t number = backend.count("perform");
        EXPECT_EQ(http_headers(http), names());
        EXPECT_EQ(refused({}), VEL_ERROR_NOT_FOUND);
        EXPECT_EQ(refused({"Basic"}), VEL_ERROR_NONE);
        vel_http_set_status_code(http, number < 3 ? 302 : 200);
        return vel_http_write_response_header(http, "location", "/x");
    };
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_NONE);
    EXPECT_EQ(backend.count("perform"), 3u);
}

TEST_F(VelhttpAuth, FirstHeaderOfTheNameGoesWithEachPass)
{
    for (const char *header : {"a: 1", " Proxy-AUTHORIZATION\t: x", "proxy-authorization",
                               "proxy-authorization:y", "proxy-authorizations: z"})
        EXPECT_EQ(vel_http_add_header(http, header), VEL_ERROR_NONE);
    std::vector<names> seen;
    backend.perform = [&](velhttp *) {
        seen.push_back(http_headers(http));
        vel_http_set_status_code(http, seen.size() < 4 ? 302 : 200);
        return vel_http_write_response_header(http, "location", "/x");
    };
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_NONE);
    const names last = {"a: 1", "proxy-authorization", "proxy-authorizations: z"};
    ASSERT_EQ(seen.size(), 4u);
    EXPECT_EQ(seen[0].size(), 5u);
    EXPECT_EQ(seen[1], (names{"a: 1", "proxy-authorization", "proxy-authorization:y",
                              "proxy-authorizations: z"}));
    EXPECT_EQ(seen[2], last);
    EXPECT_EQ(seen[3], last);
}

TEST_F(VelhttpAuth, HeaderOfTheProgramIsReplaced)
{
    EXPECT_EQ(vel_http_add_header(http, "Proxy-Authorization: mine"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_add_header(http, "b: 1"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_add_header(http, "Proxy-Authorisation: as long"), VEL_ERROR_NONE);
    EXPECT_EQ(inside([&] {
                  EXPECT_EQ(refused({"Basic"}), VEL_ERROR_NONE);
                  EXPECT_EQ(http_headers(http),
                            (names{"b: 1", "Proxy-Authorisation: as long", credentials_}));
              }),
              VEL_ERROR_NONE);
}

TEST_F(VelhttpAuth, NotAsked)
{
    for (const unsigned int status : {0u, 200u, 401u}) {
        EXPECT_EQ(vel_http_set_proxy(http, nullptr, 0), VEL_ERROR_NONE);
        EXPECT_EQ(inside([&] {
                      vel_http_set_status_code(http, status);
                      EXPECT_EQ(vel_http_handle_auth_request(http), VEL_ERROR_NONE);
                  }),
                  VEL_ERROR_NONE);
        EXPECT_EQ(logged(), lines{line(7, "Proxy server has not requested authentication")});
    }
}

TEST_F(VelhttpAuth, NoProxy)
{
    for (const char *hostname : {static_cast<const char *>(nullptr), ""}) {
        EXPECT_EQ(vel_http_set_proxy_with_auth(http, hostname, 1, "u", "p"), VEL_ERROR_NONE);
        EXPECT_EQ(inside([&] { EXPECT_EQ(refused({"Basic"}), VEL_ERROR_PROTOCOL); }),
                  VEL_ERROR_NONE);
        EXPECT_EQ(logged(), lines{line(7, "Proxy server is not defined")});
    }
}

TEST_F(VelhttpAuth, NoUser)
{
    EXPECT_EQ(vel_http_set_proxy(http, "proxy", 1), VEL_ERROR_NONE);
    EXPECT_EQ(inside([&] { EXPECT_EQ(refused({"Basic"}), VEL_ERROR_ACCESS); }), VEL_ERROR_NONE);
    EXPECT_EQ(logged(), lines{line(7, "No user defined for proxy authentication")});
}

TEST_F(VelhttpAuth, PasswordIsNotLogged)
{
    EXPECT_EQ(inside([&] { EXPECT_EQ(refused({"Basic"}), VEL_ERROR_NONE); }), VEL_ERROR_NONE);
    for (const support::log_line &one : log.take()) {
        EXPECT_EQ(one.text.find("secret"), one.text.npos) << one;
        EXPECT_EQ(one.text.find("dXNlcjpzZWNyZXQ"), one.text.npos) << one;
    }
}

TEST_F(VelhttpAuth, WithoutMemory)
{
    std::vector<lines> failures;
    EXPECT_EQ(inside([&] {
                  vel_http_set_status_code(http, 407);
                  failures = each_failure(log, kModule, [&] {
                      {
                          support::malloc_watch pause;
                          vel_http_write_response_header(http, "Proxy-Authenticate", "Basic");
                      }
                      static size_t number;
                      support::malloc_watch watch(++number);
                      const vel_error_t result = vel_http_handle_auth_request(http);
                      EXPECT_TRUE(result == VEL_ERROR_NONE || result == VEL_ERROR_NOT_FOUND);
                      return result == VEL_ERROR_NONE;
                  });
                  EXPECT_EQ(http_headers(http), names{credentials_});
              }),
              VEL_ERROR_NONE);
    const support::log_line refusal = line(7, "Can not add 'proxy-authorization' request header");
    EXPECT_EQ(failures, (std::vector<lines>{
                            {started_[0], line(7, "not enough memory for proxy auth credentials")},
                            {started_[0], line(7, "not enough memory for header entry"), refusal},
                            {started_[0], line(7, "not enough memory for header line"), refusal},
                        }));
}

class VelhttpIntakeDeathTest : public VelhttpPerform {};

TEST_F(VelhttpIntakeDeathTest, Arguments)
{
    EXPECT_DEATH(vel_http_write_response_header(http, nullptr, "x"),
                 asserts("name != NULL", "vel_http_write_response_header"));
    EXPECT_DEATH(vel_http_write_response_body(http, nullptr, 1),
                 asserts("data != NULL", "vel_http_write_response_body"));
    EXPECT_DEATH(vel_http_write_response_body(http, "", 0),
                 asserts("size > 0", "vel_http_write_response_body"));
}

/* A header without a value is in the store, and the next response cannot begin. */
TEST_F(VelhttpIntakeDeathTest, HeaderWithoutValue)
{
    const auto two_transfers = [&] {
        inside([&] {
            for (const char *name : {"content-length", "proxy-authenticate", "x"})
                EXPECT_EQ(vel_http_write_response_header(http, name, nullptr), VEL_ERROR_NONE);
            EXPECT_EQ(vel_http_get_response_header(http, "x"), nullptr);
            EXPECT_EQ(downloaded(), (state{0, -1}));
            if (!logged().empty())
                _exit(1);
        });
        if (HasFailure())
            _exit(1);
        vel_http_perform(http);
    };
    EXPECT_DEATH(two_transfers(), asserts("item != NULL", "vel_httpheaders_header_destroy"));
}
