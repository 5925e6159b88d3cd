#include <cerrno>
#include <memory>
#include <netinet/in.h>
#include <poll.h>
#include <random>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/velerror.h>
#include <vellib/velicap.h>
#include <vellib/velmalloc.h>

#include "support/logcapture.h"
#include "support/peer.h"
#include "support/rows.h"
#include "support/shared.h"
#include "support/tempdir.h"

using support::peer;
using testing::AnyOf;
using testing::HasSubstr;
using testing::StartsWith;
using lines = std::vector<support::log_line>;

/* Hands connections of a UNIX-domain socket to a port of 127.0.0.1, one after the other, and keeps
 * whatever one side has sent until the other one takes it. */
class patient_relay {
  public:
    patient_relay(const std::string &path, unsigned int port) : port_(port)
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        const void *generic = &address;
        listener_ = socket(AF_UNIX, SOCK_STREAM, 0);
        EXPECT_EQ(bind(listener_, static_cast<const sockaddr *>(generic), sizeof address), 0);
        EXPECT_EQ(listen(listener_, 8), 0);
        EXPECT_EQ(pipe(stop_), 0);
        thread_ = std::thread([this] { run(); });
    }
    ~patient_relay()
    {
        close(stop_[1]);
        thread_.join();
        close(stop_[0]);
        close(listener_);
    }
    patient_relay(const patient_relay &) = delete;
    patient_relay &operator=(const patient_relay &) = delete;

  private:
    struct direction {
        int from, to;
        std::string kept;
        size_t sent = 0;
        bool ended = false;
    };

    void run()
    {
        pollfd set[2] = {{listener_, POLLIN, 0}, {stop_[0], POLLIN, 0}};
        while (poll(set, 2, -1) > 0 && !set[1].revents) {
            const int client = accept(listener_, nullptr, nullptr);
            const int server = connect_to_server();
            relay(client, server);
            close(client);
            close(server);
        }
    }
    int connect_to_server() const
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port_));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const void *generic = &address;
        const int server = socket(AF_INET, SOCK_STREAM, 0);
        EXPECT_EQ(connect(server, static_cast<const sockaddr *>(generic), sizeof address), 0);
        return server;
    }
    static bool take(direction &way)
    {
        static char buffer[1 << 16];
        const ssize_t count = recv(way.from, buffer, sizeof buffer, MSG_DONTWAIT);
        if (count > 0)
            way.kept.append(buffer, static_cast<size_t>(count));
        way.ended = count == 0;
        return count > 0 || (count < 0 && errno == EAGAIN);
    }
    static void give(direction &way)
    {
        const ssize_t count = send(way.to, way.kept.data() + way.sent, way.kept.size() - way.sent,
                                   MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count > 0)
            way.sent += static_cast<size_t>(count);
    }
    static bool has(const direction &way)
    {
        return way.sent < way.kept.size();
    }
    /* Until the client goes, or the test ends. When the server has gone and all that it said is
     * delivered, that direction ends. */
    void relay(int client, int server) const
    {
        const short kIn = POLLIN | POLLHUP | POLLERR;
        direction up = {client, server, {}}, down = {server, client, {}};
        while (true) {
            pollfd set[3] = {{client, POLLIN, 0}, {server, POLLIN, 0}, {stop_[0], POLLIN, 0}};
            set[0].events |= has(down) ? POLLOUT : 0;
            set[1].events |= has(up) ? POLLOUT : 0;
            if (down.ended)
                set[1].fd = -1;
            if (down.ended && !has(down))
                shutdown(client, SHUT_WR);
            if (poll(set, 3, -1) <= 0 || set[2].revents)
                return;
            if ((set[0].revents & kIn) && !take(up))
                return;
            if ((set[1].revents & kIn) && !take(down))
                down.ended = true;
            if (set[1].revents & POLLOUT)
                give(up);
            if (set[0].revents & POLLOUT)
                give(down);
        }
    }

    const unsigned int port_;
    int listener_ = -1;
    int stop_[2] = {-1, -1};
    std::thread thread_;
};

/* One server for all tests. */
struct servers {
    servers()
    {
        support::setup_c_icap(cicap);
        if (cicap.failure().empty())
            relay = std::make_unique<patient_relay>(cicap.path("relay"), cicap.port());
    }

    peer cicap;
    std::unique_ptr<patient_relay> relay;
};

[[maybe_unused]] static const auto *kEnvironment =
    testing::AddGlobalTestEnvironment(new support::shared<servers>);

static const std::string kRequest = "POST http://h/ HTTP/1.1\r\nHost: h\r\n\r\n";
static const std::string kChunkedRequest =
    "POST http://h/ HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n";
static const std::string kResponse = "HTTP/1.1 200 OK\r\nServer: y\r\n\r\n";
static const std::string kChunkedResponse = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";

static std::string random_body(size_t size)
{
    std::mt19937_64 random(20240229 + size);
    std::string body;
    while (body.size() < size) {
        const uint64_t word = random();
        const void *generic = &word;
        body.append(static_cast<const char *>(generic), sizeof word);
    }
    body.resize(size);
    return body;
}

/* The parameter: through the relay, and so through a UNIX-domain socket, or not. */
class Cicap : public testing::TestWithParam<bool> {
  protected:
    void SetUp() override
    {
        ASSERT_EQ(server().failure(), "");
        use_service("/echo", GetParam());
        vel_icap_set_timeout(icap_, 60, 0); /* no test hangs */
    }
    ~Cicap() override
    {
        vel_icap_destroy(icap_);
    }

    static const peer &server()
    {
        return support::shared<servers>::all->cicap;
    }
    void use_service(const std::string &service, bool relayed)
    {
        std::string path = server().path("relay");
        for (size_t at; (at = path.find('/')) != path.npos;)
            path.replace(at, 1, "%2F");
        const std::string url = (relayed ? "icap+unix://" + path
                                         : "icap://127.0.0.1:" + std::to_string(server().port())) +
                                service;
        ASSERT_EQ(vel_icap_set_url(icap_, url.c_str()), VEL_ERROR_NONE);
    }
    void set_request(const std::string &headers)
    {
        vel_icap_set_method_reqmod(icap_);
        EXPECT_EQ(vel_icap_set_request_headers(icap_, headers.data(), headers.size()),
                  VEL_ERROR_NONE);
    }
    void set_response(const std::string &headers)
    {
        vel_icap_set_method_respmod(icap_);
        EXPECT_EQ(vel_icap_set_response_headers(icap_, headers.data(), headers.size()),
                  VEL_ERROR_NONE);
    }
    void set_body(bool request, const std::string &body)
    {
        EXPECT_EQ((request ? vel_icap_set_request_body
                           : vel_icap_set_response_body)(icap_, body.data(), body.size()),
                  VEL_ERROR_NONE);
    }

    static std::string taken(vel_error_t result, char *text)
    {
        const std::string copy = result == VEL_ERROR_NONE ? text : "none";
        vel_free(text);
        return copy;
    }
    std::string icap_headers()
    {
        char *text = nullptr;
        const vel_error_t result = vel_icap_get_response_icap_headers(icap_, &text);
        return taken(result, text);
    }
    std::string headers()
    {
        char *text = nullptr;
        const vel_error_t result = vel_icap_get_response_headers(icap_, &text);
        return taken(result, text);
    }
    std::string body()
    {
        char *text = nullptr;
        size_t size = 0;
        if (vel_icap_get_response_body_and_size(icap_, &text, &size) != VEL_ERROR_NONE)
            return "none";
        std::string copy(text, size);
        vel_free(text);
        return copy;
    }
    /* The headers that were sent come back with one more. */
    void expect_headers(const std::string &sent)
    {
        EXPECT_THAT(headers(), StartsWith(sent.substr(0, sent.size() - 2) + "Via: ICAP/1.0 "));
    }
    void expect_body(const std::string &sent)
    {
        const std::string got = body();
        EXPECT_EQ(got.size(), sent.size());
        EXPECT_TRUE(got == sent);
    }
    /* How often the server has said something so far. */
    static int said(const std::string &text)
    {
        const std::string all = support::read_file(server().path("server.log"));
        int count = 0;
        for (size_t at = 0; (at = all.find(text, at)) != all.npos; at++)
            count++;
        return count;
    }
    lines logged()
    {
        lines all = log_.take_from("net/velicap");
        std::erase_if(all, [](const support::log_line &line) { return line.level > 7; });
        return all;
    }

    support::log_capture log_;
    velicap *const icap_ = vel_icap_create();
};
INSTANTIATE_TEST_SUITE_P(Transport, Cicap, testing::Bool(),
                         [](const auto &row) { return std::string(row.param ? "Unix" : "Tcp"); });

TEST_P(Cicap, Options)
{
    vel_icap_set_method_options(icap_);
    EXPECT_EQ(vel_icap_perform(icap_), VEL_ERROR_NONE);
    EXPECT_EQ(vel_icap_get_status_code(icap_), 200u);
    EXPECT_THAT(icap_headers(), HasSubstr("Methods: RESPMOD, REQMOD\r\n"));
    EXPECT_THAT(icap_headers(), HasSubstr("Encapsulated: null-body=0\r\n"));
    EXPECT_EQ(headers(), "none");
    EXPECT_EQ(body(), "none");
}

TEST_P(Cicap, BodiesComeBack)
{
    for (const bool allow : {false, true}) {
        if (allow)
            vel_icap_set_allow_204(icap_);
        for (const bool request : {true, false}) {
            for (const size_t size : {1u, 2u, 1023u, 1024u, 1025u, 4095u, 4096u, 4097u, 8192u,
                                      65535u, 65536u, 1u << 20}) {
                SCOPED_TRACE(size);
                const std::string sent = random_body(size);
                if (request)
                    set_request(kRequest);
                else
                    set_response(kResponse);
                set_body(request, sent);
                EXPECT_EQ(vel_icap_perform(icap_), VEL_ERROR_NONE);
                EXPECT_EQ(vel_icap_get_status_code(icap_), 200u);
                expect_headers(request ? kRequest : kResponse);
                expect_body(sent);
            }
        }
    }
}

/* Only a message without a body comes back as 204. */
TEST_P(Cicap, HeadersAlone)
{
    for (const bool allow : {false, true}) {
        if (allow)
            vel_icap_set_allow_204(icap_);
        for (const bool request : {true, false}) {
            if (request)
                set_request(kRequest);
            else
                set_response(kResponse);
            EXPECT_EQ(vel_icap_perform(icap_), VEL_ERROR_NONE);
            EXPECT_EQ(vel_icap_get_status_code(icap_), allow ? 204u : 200u);
            if (allow)
                EXPECT_EQ(headers(), "none");
            else
                expect_headers(request ? kRequest : kResponse);
            EXPECT_EQ(body(), "none");
        }
    }
}

TEST_P(Cicap, ResponseWithTheRequestItAnswers)
{
    set_request(kRequest);
    set_response(kResponse);
    set_body(false, "body");
    EXPECT_EQ(vel_icap_perform(icap_), VEL_ERROR_NONE);
    expect_headers(kResponse);
    expect_body("body");
}

/* Takes the framing off a body that ends in the two last chunks that the client gives. */
static std::string without_chunks(std::string_view body)
{
    std::string data;
    while (true) {
        const size_t end = body.find("\r\n");
        if (end == body.npos)
            return "unfinished";
        const size_t size = std::stoul(std::string(body.substr(0, end)), nullptr, 16);
        if (size == 0)
            return body == "0\r\n\r\n0\r\n\r\n" ? data : "ends otherwise";
        data += body.substr(end + 2, size);
        if (body.substr(end + 2 + size, 2) != "\r\n")
            return "unframed";
        body.remove_prefix(end + 2 + size + 2);
    }
}

/* What went out in chunks comes back so, not in the same ones. */
TEST_P(Cicap, ChunkedAlready)
{
    const std::string text = "abcdefghijklmnopqrstuvwxyz";
    for (const bool request : {true, false}) {
        if (request)
            set_request(kChunkedRequest);
        else
            set_response(kChunkedResponse);
        set_body(request,
                 "d\r\n" + text.substr(0, 13) + "\r\nd\r\n" + text.substr(13) + "\r\n0\r\n\r\n");
        EXPECT_EQ(vel_icap_perform(icap_), VEL_ERROR_NONE);
        expect_headers(request ? kChunkedRequest : kChunkedResponse);
        EXPECT_EQ(without_chunks(body()), text);
    }
}

/* What an exchange ends with that the server has given up; an answer that stops in the middle of a
 * line is an internal error. */
static const auto kGivenUp = testing::AnyOf(VEL_ERROR_END_OF_FILE, VEL_ERROR_CONNECTION_RESET,
                                            VEL_ERROR_BROKEN_PIPE, VEL_ERROR_INTERNAL);

/* A body of a callback, in these pieces. */
struct body_source {
    std::vector<std::string> pieces;
    size_t next = 0;

    static size_t callback(void *buffer, size_t size, void *context)
    {
        auto *self = static_cast<body_source *>(context);
        if (self->next == self->pieces.size())
            return 0;
        return self->pieces[self->next++].copy(static_cast<char *>(buffer), size);
    }
};

TEST_P(Cicap, CallbackOfOneBuffer)
{
    body_source source{{random_body(4096)}};
    set_request(kRequest);
    vel_icap_set_request_body_callback(icap_, body_source::callback, &source);
    EXPECT_EQ(vel_icap_perform(icap_), VEL_ERROR_NONE);
    expect_body(source.pieces[0]);
}

/* Several buffers arrive if their chunks are the callback's own. */
TEST_P(Cicap, CallbackOfBuffersInChunks)
{
    body_source source{{"3\r\nab", "c\r\n2\r\n", "de\r\n0\r\n\r\n"}};
    set_request(kChunkedRequest);
    vel_icap_set_request_body_callback(icap_, body_source::callback, &source);
    EXPECT_EQ(vel_icap_perform(icap_), VEL_ERROR_NONE);
    EXPECT_EQ(without_chunks(body()), "abcde");
}

/* Otherwise nothing ends the first chunk. The server gives up, in the middle of its answer or before
 * it, and what the client sees first of that is a matter of time. */
TEST_P(Cicap, CallbackOfTwoBuffers)
{
    const int before = said("Error parsing chunks");
    body_source source{{random_body(4096), random_body(4096)}};
    set_request(kRequest);
    vel_icap_set_request_body_callback(icap_, body_source::callback, &source);
    EXPECT_THAT(vel_icap_perform(icap_), kGivenUp);
    EXPECT_THAT(vel_icap_get_status_code(icap_), AnyOf(0u, 200u));
    EXPECT_EQ(server().count_lines("server.log", "Error parsing chunks", before + 1), before + 1);
}

/* A body of no chunk but the last begins with the end of a chunk that is not there. */
TEST_P(Cicap, CallbackWithoutABuffer)
{
    body_source source{{}};
    set_request(kRequest);
    vel_icap_set_request_body_callback(icap_, body_source::callback, &source);
    EXPECT_THAT(vel_icap_perform(icap_), kGivenUp);
    EXPECT_EQ(vel_icap_get_status_code(icap_), 0u);
}

TEST_P(Cicap, UnknownService)
{
    use_service("/nosuch", GetParam());
    vel_icap_set_method_options(icap_);
    EXPECT_EQ(vel_icap_perform(icap_), VEL_ERROR_PROTOCOL);
    EXPECT_EQ(vel_icap_get_status_code(icap_), 404u);
    EXPECT_EQ(logged(), (lines{{"net/velicap", 6, "no Encapsulated header in the ICAP response"}}));
}

TEST_P(Cicap, ContextsAreUsedAgain)
{
    vel_icap_set_allow_204(icap_);
    for (int turn = 0; turn < 50; turn++) {
        const std::string sent = random_body(static_cast<size_t>(turn * 100 + 1));
        set_response(kResponse);
        set_body(false, sent);
        ASSERT_EQ(vel_icap_perform(icap_), VEL_ERROR_NONE);
        expect_body(sent);
        set_request(kRequest);
        ASSERT_EQ(vel_icap_perform(icap_), VEL_ERROR_NONE);
        EXPECT_EQ(vel_icap_get_status_code(icap_), 204u);
        use_service("/nosuch", GetParam());
        vel_icap_set_method_options(icap_);
        ASSERT_EQ(vel_icap_perform(icap_), VEL_ERROR_PROTOCOL);
        use_service("/echo", GetParam());
        if (turn % 2)
            vel_icap_reset(icap_);
    }
}

/* The server answers while it receives. Where somebody keeps its answer meanwhile, a body of any
 * size comes back; where nobody does, both sides wait for the other to read, until the time is up. */
TEST_P(Cicap, LargeBody)
{
    const std::string sent = random_body(64 << 20);
    const bool kept = GetParam();
    set_response(kResponse);
    set_body(false, sent);
    vel_icap_set_timeout(icap_, kept ? 60 : 1, 0);
    EXPECT_EQ(vel_icap_perform(icap_), kept ? VEL_ERROR_NONE : VEL_ERROR_TIMED_OUT);
    if (kept) {
        expect_body(sent);
    } else {
        EXPECT_EQ(logged(),
                  (lines{{"net/velicap", 7, "unable to send chunk data, error 201 (timed out)"},
                         {"net/velicap", 7, "unable to send chunk, error 201 (timed out)"}}));
    }
}
