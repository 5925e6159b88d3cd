#include "support/icap.h"

#include "support/eachfailure.h"

/* Life. */

TEST_F(Velicap, CreateLogsNothing)
{
    EXPECT_EQ(logged(), lines());
}

TEST_F(Velicap, CreateWithoutMemory)
{
    const auto failures = support::each_failure(log, "net/velicap", [] {
        velicap *created = vel_icap_create();
        if (created)
            vel_icap_destroy(created);
        return created != nullptr;
    });
    EXPECT_EQ(failures, (std::vector<lines>{
                            {said(7, "not enough memory for the velicap context")},
                            {said(7, "not enough memory for receive buffer (4096 bytes)")},
                            {said(7, "not enough memory for veltimeout context")},
                            {said(7, "not enough memory for the response header hashtable")},
                        }));
}

TEST_F(Velicap, NothingHasBeenReceivedAtFirst)
{
    EXPECT_EQ(vel_icap_get_status_code(icap), 0u);
    char dirt = 0, *text = &dirt;
    size_t size = 77;
    EXPECT_EQ(vel_icap_get_response_icap_headers(icap, &text), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(logged(), lines{kNoIcapHeaders});
    text = &dirt;
    EXPECT_EQ(vel_icap_get_response_headers(icap, &text), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(logged(), lines{kNoHeaders});
    text = &dirt;
    EXPECT_EQ(vel_icap_get_response_body_and_size(icap, &text, &size), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(logged(), lines{kNoBody});
}

TEST_F(Velicap, NoMethod)
{
    EXPECT_EQ(vel_icap_set_url(icap, "icap://127.0.0.1:1/svc"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_icap_perform(icap), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(logged(), lines{said(6, "INTERNAL ERROR: Unrecognized method 0")});
    EXPECT_EQ(wire.connects, std::vector<int>());
}

TEST_F(Velicap, NoUrl)
{
    vel_icap_set_method_options(icap);
    EXPECT_EQ(vel_icap_perform(icap), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(logged(), lines{said(6, "no URL set")});
    EXPECT_EQ(vel_icap_perform(icap), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(logged(), lines{said(6, "INTERNAL ERROR: Unrecognized method 0")});
}

TEST_F(Velicap, UrlWithoutMemoryIsNone)
{
    const std::string other = "icap://other/svc";
    EXPECT_EQ(vel_icap_set_url(icap, "icap://127.0.0.1:1/svc"), VEL_ERROR_NONE);
    {
        support::malloc_watch watch(1);
        EXPECT_EQ(vel_icap_set_url(icap, other.c_str()), VEL_ERROR_NO_MEMORY);
    }
    EXPECT_EQ(logged(), lines{said(7, "not enough memory to set icap url to '" + other + "'")});
    vel_icap_set_method_options(icap);
    EXPECT_EQ(vel_icap_perform(icap), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(logged(), lines{said(6, "no URL set")});
    EXPECT_EQ(wire.connects, std::vector<int>());
}

TEST_F(Velicap, UnparsableUrl)
{
    EXPECT_EQ(vel_icap_set_url(icap, "icap://a:b:c/"), VEL_ERROR_NONE);
    vel_icap_set_method_options(icap);
    EXPECT_EQ(vel_icap_perform(icap), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(logged(), lines{said_error(7, "unable to parse URL 'icap://a:b:c/',", 22)});
}

/* Parts. */

/* What is set, as the text of the Encapsulated header tells it. */
TEST_F(Velicap, StoredParts)
{
    EXPECT_STREQ(vel_icap_build_encapsulated_header(icap), "null-body=0");
    const std::string line = "GET / HTTP/1.1\r\n";
    const std::string request = line + "A: " + std::string(137 - line.size() - 7, 'x') + "\r\n\r\n";
    const std::string response =
        line + "A: " + std::string(159 - line.size() - 7, 'x') + "\r\n\r\n";
    set_request(request);
    EXPECT_STREQ(vel_icap_build_encapsulated_header(icap), "req-hdr=0, null-body=137");
    set_request_body("abc");
    EXPECT_STREQ(vel_icap_build_encapsulated_header(icap), "req-hdr=0, req-body=137");
    vel_icap_reset(icap);
    EXPECT_STREQ(vel_icap_build_encapsulated_header(icap), "null-body=0");
    set_response(response);
    EXPECT_STREQ(vel_icap_build_encapsulated_header(icap), "res-hdr=0, null-body=159");
    set_response_body("abc");
    EXPECT_STREQ(vel_icap_build_encapsulated_header(icap), "res-hdr=0, res-body=159");
    set_request(request);
    EXPECT_STREQ(vel_icap_build_encapsulated_header(icap), "req-hdr=0, res-hdr=137, res-body=296");
    vel_icap_reset(icap);
    set_request_body("abc");
    EXPECT_STREQ(vel_icap_build_encapsulated_header(icap), "req-body=0");
    set_response(response);
    EXPECT_STREQ(vel_icap_build_encapsulated_header(icap), "res-hdr=0, req-body=159");
    EXPECT_EQ(logged(), lines());
}

TEST_F(Velicap, PartSetAgainReplacesTheEarlierOne)
{
    set_request(kChunkedRequest);
    set_request(kRequest);
    EXPECT_STREQ(vel_icap_build_encapsulated_header(icap),
                 ("req-hdr=0, null-body=" + std::to_string(kRequest.size())).c_str());
    int value = 77;
    EXPECT_EQ(vel_icap_part_is_chunk_encoded(icap, VEL_ICAP_ENCAPSULATED_GEN_REQBODY, &value),
              VEL_ERROR_NONE);
    EXPECT_EQ(value, 0);
}

/* A part of no bytes takes part, as it is stored. */
TEST_F(Velicap, EmptyPart)
{
    EXPECT_EQ(vel_icap_set_request_headers(icap, "", 0), VEL_ERROR_NONE);
    EXPECT_STREQ(vel_icap_build_encapsulated_header(icap), "req-hdr=0, null-body=0");
    EXPECT_EQ(vel_icap_set_request_body(icap, "", 0), VEL_ERROR_NONE);
    EXPECT_STREQ(vel_icap_build_encapsulated_header(icap), "req-hdr=0, req-body=0");
}

static size_t no_body(void *, size_t, void *)
{
    return 0;
}

TEST_F(Velicap, CallbackTakesThePlaceOfTheBodyOfTheMethod)
{
    vel_icap_set_request_body_callback(icap, no_body, nullptr);
    EXPECT_STREQ(vel_icap_build_encapsulated_header(icap), "null-body=0");
    vel_icap_set_method_reqmod(icap);
    EXPECT_STREQ(vel_icap_build_encapsulated_header(icap), "req-body=0");
    set_request(kRequest);
    const std::string size = std::to_string(kRequest.size());
    EXPECT_EQ(vel_icap_build_encapsulated_header(icap), "req-hdr=0, req-body=" + size);
    vel_icap_set_method_respmod(icap);
    EXPECT_EQ(vel_icap_build_encapsulated_header(icap), "req-hdr=0, res-body=" + size);
    vel_icap_set_method_options(icap);
    EXPECT_EQ(vel_icap_build_encapsulated_header(icap), "req-hdr=0, null-body=" + size);
    vel_icap_reset(icap);
    vel_icap_set_method_reqmod(icap);
    EXPECT_STREQ(vel_icap_build_encapsulated_header(icap), "null-body=0");
}

TEST_F(Velicap, TextOfTheEncapsulatedHeaderIsSharedByAll)
{
    velicap *other = vel_icap_create();
    ASSERT_NE(other, nullptr);
    set_request(kRequest);
    const char *text = vel_icap_build_encapsulated_header(icap);
    EXPECT_EQ(vel_icap_build_encapsulated_header(other), text);
    EXPECT_STREQ(text, "null-body=0");
    vel_icap_destroy(other);
}

TEST_F(Velicap, HeadersWithoutAColonAreKeptUnparsed)
{
    const std::string bad = "GET / HTTP/1.1\r\nTransfer-Encoding: chunked\r\nbad\r\n\r\n";
    const std::string size = std::to_string(bad.size());
    EXPECT_EQ(vel_icap_set_request_headers(icap, bad.data(), bad.size()), VEL_ERROR_INVALID_SYNTAX);
    EXPECT_EQ(vel_icap_build_encapsulated_header(icap), "req-hdr=0, null-body=" + size);
    EXPECT_EQ(vel_icap_set_response_headers(icap, bad.data(), bad.size()),
              VEL_ERROR_INVALID_SYNTAX);
    for (const unsigned int kind :
         {VEL_ICAP_ENCAPSULATED_GEN_REQBODY, VEL_ICAP_ENCAPSULATED_GEN_RESBODY}) {
        int value = 77;
        EXPECT_EQ(vel_icap_part_is_chunk_encoded(icap, kind, &value), VEL_ERROR_NONE);
        EXPECT_EQ(value, 0);
    }
    EXPECT_EQ(logged(), lines());
}

/* The parser of the headers reads beyond a text that ends in a blank, up to the NUL behind it. */
TEST_F(Velicap, HeadersThatEndInABlank)
{
    const std::string text = "GET / HTTP/1.1\r\nA: ";
    std::vector<char> exact(text.begin(), text.end());
    EXPECT_EQ(vel_icap_set_request_headers(icap, exact.data(), exact.size()), VEL_ERROR_NONE);
    EXPECT_EQ(vel_icap_set_response_headers(icap, exact.data(), exact.size()), VEL_ERROR_NONE);
}

TEST_F(Velicap, PartsWithoutMemory)
{
    for (const bool request : {true, false}) {
        std::vector<vel_error_t> results;
        const std::string size = std::to_string(request ? kRequest.size() : kResponse.size());
        const auto failures = support::each_failure(log, "net/velicap", [&] {
            results.push_back(
                request ? vel_icap_set_request_headers(icap, kRequest.data(), kRequest.size())
                        : vel_icap_set_response_headers(icap, kResponse.data(), kResponse.size()));
            return results.back() == VEL_ERROR_NONE;
        });
        EXPECT_EQ(failures,
                  (std::vector<lines>{
                      {said(7, "not enough memory for the encapsulated part (" + size + " bytes)")},
                      {} /* of the headers, which log as another module */
                  }));
        ASSERT_GE(results.size(), 3u);
        results.pop_back();
        EXPECT_THAT(results, testing::Each(VEL_ERROR_NO_MEMORY));
    }
}

TEST_F(Velicap, BodyWithoutMemoryIsNone)
{
    set_request_body("old");
    {
        support::malloc_watch watch(1);
        EXPECT_EQ(vel_icap_set_request_body(icap, "new", 3), VEL_ERROR_NO_MEMORY);
    }
    EXPECT_EQ(logged(), lines{said(7, "not enough memory for the encapsulated part (3 bytes)")});
    EXPECT_STREQ(vel_icap_build_encapsulated_header(icap), "null-body=0");
    set_response_body("old");
    {
        support::malloc_watch watch(1);
        EXPECT_EQ(vel_icap_set_response_body(icap, "newer", 5), VEL_ERROR_NO_MEMORY);
    }
    EXPECT_EQ(logged(), lines{said(7, "not enough memory for the encapsulated part (5 bytes)")});
    EXPECT_STREQ(vel_icap_build_encapsulated_header(icap), "null-body=0");
}

/* Chunk encoding, which the headers of the message tell. */

struct encoding_case {
    const char *name;
    std::string headers;
    int chunked;
};

static void PrintTo(const encoding_case &one, std::ostream *out)
{
    *out << one.name;
}

class VelicapEncoding : public Velicap, public testing::WithParamInterface<encoding_case> {};

TEST_P(VelicapEncoding, OfEachBody)
{
    const encoding_case &row = GetParam();
    static const unsigned int kKinds = VEL_ICAP_ENCAPSULATED_GEN_NUMTYPES;
    for (const bool request : {true, false}) {
        vel_icap_reset(icap);
        if (request)
            set_request("GET / HTTP/1.1\r\n" + row.headers + "\r\n");
        else
            set_response("HTTP/1.1 200 OK\r\n" + row.headers + "\r\n");
        const unsigned int body =
            request ? VEL_ICAP_ENCAPSULATED_GEN_REQBODY : VEL_ICAP_ENCAPSULATED_GEN_RESBODY;
        for (unsigned int kind = 0; kind <= kKinds; kind++) {
            int value = 77;
            EXPECT_EQ(vel_icap_part_is_chunk_encoded(icap, kind, &value), VEL_ERROR_NONE);
            const bool asked = kind == body && row.chunked;
            EXPECT_EQ(value, asked ? 1 : 0) << kind;
            EXPECT_EQ(logged(), asked ? lines{kEncoded} : lines());
        }
    }
}

static const encoding_case kEncodingCases[] = {
    {"None", "Host: h\r\n", 0},
    {"Chunked", "Transfer-Encoding: chunked\r\n", 1},
    {"AnyCase", "TRANSFER-encoding: CHUNKed\r\n", 1},
    {"LastOfSeveral", "Transfer-Encoding: gzip, Chunked\r\n", 1},
    {"FirstOfSeveral", "Transfer-Encoding: chunked,gzip\r\n", 1},
    {"Anywhere", "Transfer-Encoding: xchunkedx\r\n", 1},
    {"Empty", "Transfer-Encoding:\r\n", 0},
    {"Identity", "Transfer-Encoding: identity\r\n", 0},
    {"NotWhole", "Transfer-Encoding: chunke\r\n", 0},
    {"OtherHeader", "Content-Encoding: chunked\r\n", 0},
    {"BehindTheBlankLine", "A: b\r\n\r\nTransfer-Encoding: chunked\r\n", 0},
    {"LastValueCounts", "Transfer-Encoding: chunked\r\nTransfer-Encoding: gzip\r\n", 0},
};
INSTANTIATE_TEST_SUITE_P(Table, VelicapEncoding, testing::ValuesIn(kEncodingCases),
                         support::row_name());

TEST_F(Velicap, EncodingOfABodyWithoutHeaders)
{
    set_request_body("abc");
    int value = 77;
    EXPECT_EQ(vel_icap_part_is_chunk_encoded(icap, VEL_ICAP_ENCAPSULATED_GEN_REQBODY, &value),
              VEL_ERROR_NONE);
    EXPECT_EQ(value, 0);
}

TEST_F(Velicap, EncodingWithoutMemory)
{
    set_request(kChunkedRequest);
    int value = 77;
    /* The look-up of the header takes the first one. */
    support::malloc_watch watch(2);
    EXPECT_EQ(vel_icap_part_is_chunk_encoded(icap, VEL_ICAP_ENCAPSULATED_GEN_REQBODY, &value),
              VEL_ERROR_NO_MEMORY);
    EXPECT_EQ(value, 0);
}

/* Assertions. */

using VelicapDeathTest = Velicap;

TEST_F(VelicapDeathTest, Handle)
{
    const auto check = [](auto call, const std::string &function) {
        EXPECT_DEATH(call(), asserts("velicap != NULL", function));
    };
    int value;
    char *text;
    size_t size;
    const void *data = "x";
    check([] { vel_icap_destroy(nullptr); }, "vel_icap_destroy");
    check([] { vel_icap_reset(nullptr); }, "vel_icap_reset");
    check([] { (void)vel_icap_set_url(nullptr, "icap://h/"); }, "vel_icap_set_url");
    check([] { vel_icap_set_timeout(nullptr, 1, 0); }, "vel_icap_set_timeout");
    check([] { vel_icap_set_method_reqmod(nullptr); }, "vel_icap_set_method_reqmod");
    check([] { vel_icap_set_method_respmod(nullptr); }, "vel_icap_set_method_respmod");
    check([] { vel_icap_set_method_options(nullptr); }, "vel_icap_set_method_options");
    check([] { vel_icap_set_allow_204(nullptr); }, "vel_icap_set_allow_204");
    check([&] { (void)vel_icap_set_request_headers(nullptr, data, 1); },
          "vel_icap_set_request_headers");
    check([&] { (void)vel_icap_set_response_headers(nullptr, data, 1); },
          "vel_icap_set_response_headers");
    check([&] { (void)vel_icap_set_request_body(nullptr, data, 1); }, "vel_icap_set_request_body");
    check([&] { (void)vel_icap_set_response_body(nullptr, data, 1); },
          "vel_icap_set_response_body");
    check([] { vel_icap_set_request_body_callback(nullptr, no_body, nullptr); },
          "vel_icap_set_request_body_callback");
    check([] { (void)vel_icap_build_encapsulated_header(nullptr); },
          "vel_icap_build_encapsulated_header");
    check([&] { (void)vel_icap_part_is_chunk_encoded(nullptr, 2, &value); },
          "vel_icap_part_is_chunk_encoded");
    check([] { (void)vel_icap_get_status_code(nullptr); }, "vel_icap_get_status_code");
    check([&] { (void)vel_icap_get_response_icap_headers(nullptr, &text); },
          "vel_icap_get_response_icap_headers");
    check([&] { (void)vel_icap_get_response_headers(nullptr, &text); },
          "vel_icap_get_response_headers");
    check([&] { (void)vel_icap_get_response_body_and_size(nullptr, &text, &size); },
          "vel_icap_get_response_body_and_size");
    check([] { (void)vel_icap_perform(nullptr); }, "vel_icap_perform");
}

TEST_F(VelicapDeathTest, Arguments)
{
    char *text;
    size_t size;
    EXPECT_DEATH((void)vel_icap_set_url(icap, nullptr), asserts("url != NULL", "vel_icap_set_url"));
    for (auto set : {vel_icap_set_request_headers, vel_icap_set_request_body}) {
        EXPECT_EQ(set(icap, nullptr, 0), VEL_ERROR_NONE);
        EXPECT_DEATH((void)set(icap, nullptr, 1), asserts("data != NULL || size == 0"));
    }
    EXPECT_DEATH((void)vel_icap_set_response_headers(icap, nullptr, 1),
                 asserts("reshdr != NULL", "vel_icap_set_response_headers"));
    EXPECT_DEATH((void)vel_icap_set_response_headers(icap, "x", 0),
                 asserts("size > 0", "vel_icap_set_response_headers"));
    EXPECT_DEATH((void)vel_icap_set_response_headers(icap, nullptr, 0),
                 asserts("reshdr != NULL", "vel_icap_set_response_headers"));
    EXPECT_DEATH((void)vel_icap_set_response_body(icap, nullptr, 0),
                 asserts("data != NULL", "vel_icap_set_response_body"));
    EXPECT_DEATH((void)vel_icap_set_response_body(icap, "x", 0),
                 asserts("size > 0", "vel_icap_set_response_body"));
    EXPECT_DEATH((void)vel_icap_part_is_chunk_encoded(icap, 2, nullptr),
                 asserts("value != NULL", "vel_icap_part_is_chunk_encoded"));
    int value;
    EXPECT_DEATH((void)vel_icap_http_part_has_chunked_transfer(nullptr, &value),
                 asserts("part != NULL", "vel_icap_http_part_has_chunked_transfer"));
    velicappart *const nopart = static_cast<velicappart *>(static_cast<void *>(&value));
    EXPECT_DEATH((void)vel_icap_http_part_has_chunked_transfer(nopart, nullptr),
                 asserts("value != NULL", "vel_icap_http_part_has_chunked_transfer"));
    EXPECT_DEATH((void)vel_icap_get_response_icap_headers(icap, nullptr), "!= NULL");
    EXPECT_DEATH((void)vel_icap_get_response_headers(icap, nullptr), "!= NULL");
    EXPECT_DEATH((void)vel_icap_get_response_body_and_size(icap, nullptr, &size), "!= NULL");
    EXPECT_DEATH((void)vel_icap_get_response_body_and_size(icap, &text, nullptr), "!= NULL");
}

TEST_F(VelicapDeathTest, BothBodies)
{
    set_request_body("a");
    set_response_body("b");
    EXPECT_DEATH((void)vel_icap_build_encapsulated_header(icap),
                 "Assertion failed: .* function vel_icap_build_encapsulated_header");
}

/* A scheme without a port of its own. */
TEST_F(VelicapDeathTest, UnknownScheme)
{
    EXPECT_EQ(vel_icap_set_url(icap, "ftp2://127.0.0.1/x"), VEL_ERROR_NONE);
    vel_icap_set_method_options(icap);
    EXPECT_DEATH((void)vel_icap_perform(icap), asserts("port > 0", "vel_icap_connect_tcp"));
}
