/* The UNIX-domain transport, and calls of the platform that fail. */

#include "support/icap.h"

static const std::string kNoContent = "ICAP/1.0 204 No\r\n\r\n";

class VelicapUnix : public Velicap {
  protected:
    vel_error_t options(const std::string &url)
    {
        vel_icap_set_method_options(icap);
        EXPECT_EQ(vel_icap_set_url(icap, url.c_str()), VEL_ERROR_NONE);
        return vel_icap_perform(icap);
    }
    vel_error_t options(const icap_server &server)
    {
        return options(server.url("/svc"));
    }
    void expect_no_connection(const char *call, int platformerrno, const char *text)
    {
        icap_server server(true, {{kNoContent}});
        wire.turns[call] = {fails(platformerrno)};
        EXPECT_EQ(options(server), VEL_ERROR_GENERIC);
        EXPECT_EQ(logged(), lines{said(7, text)});
        EXPECT_EQ(wire.connects, std::vector<int>());
    }
};

/* Paths. */

TEST_F(VelicapUnix, EscapedPath)
{
    icap_server server(true, {{kNoContent}});
    std::string escaped;
    for (const char byte : server.path()) {
        static const char kDigits[] = "0123456789abcdef";
        escaped += {'%', kDigits[byte / 16], kDigits[byte % 16]};
    }
    EXPECT_EQ(options("icap+unix://" + escaped + "/svc"), VEL_ERROR_NONE);
    EXPECT_EQ(server.finish(), texts{server.head("OPTIONS", "/svc", "null-body=0")});
}

/* The path ends where an encoded NUL stands. */
TEST_F(VelicapUnix, EncodedNul)
{
    icap_server server(true, {{kNoContent}});
    EXPECT_EQ(options("icap+unix://" + icap_server::escape(server.path()) + "%00more/svc"),
              VEL_ERROR_NONE);
    EXPECT_EQ(logged(), lines{said_status(204)});
}

TEST_F(VelicapUnix, BadEscapes)
{
    const std::pair<const char *, char> rows[] = {{"%zz", 'z'},  {"%4g", 'g'},  {"a%", '\0'},
                                                  {"a%4", '\0'}, {"%%41", '%'}, {"%2F% 1", ' '}};
    for (const auto &[path, byte] : rows) {
        const std::string url = std::string("icap+unix://") + path + "/x";
        EXPECT_EQ(options(url), VEL_ERROR_INVALID_SYNTAX) << path;
        const std::string text =
            "invalid character '" + std::string(1, byte) + "' in percent encoding";
        EXPECT_EQ(logged(),
                  (lines{said(6, text),
                         said_error(7, "unescaping socket path '" + std::string(path) + "' failed,",
                                    209)}));
    }
    EXPECT_EQ(wire.connects, std::vector<int>());
}

TEST_F(VelicapUnix, NobodyListens)
{
    std::string path;
    {
        icap_server server(true, {});
        path = server.path();
    }
    EXPECT_EQ(options("icap+unix://" + icap_server::escape(path) + "/svc"), VEL_ERROR_GENERIC);
    EXPECT_EQ(logged(), lines{said(7, "connecting to unix domain socket '" + path +
                                          "' failed, errno " + std::to_string(ENOENT))});
    EXPECT_EQ(wire.connects, std::vector<int>{AF_UNIX});
}

/* What does not fit the address is cut off. */
TEST_F(VelicapUnix, PathThatIsTooLong)
{
    char name[] = "/tmp/velXXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    const std::string path = std::string(name) + "/" + std::string(107 - 15, 's');
    ASSERT_EQ(path.size(), 107u);
    {
        http_server server({{kNoContent}, {kNoContent}}, false, path);
        const std::string escaped = "icap+unix://" + icap_server::escape(path);
        EXPECT_EQ(options(escaped + "/svc"), VEL_ERROR_NONE);
        EXPECT_EQ(options(escaped + "andmore/svc"), VEL_ERROR_NONE);
        EXPECT_EQ(server.finish().size(), 2u);
        EXPECT_EQ(logged(), lines(2, said_status(204)));
    }
    std::filesystem::remove_all(name);
}

/* The scheme is taken to the letter. */
TEST_F(VelicapUnix, SchemesThatAreAlmostIt)
{
    icap_server server(false, {{kNoContent}, {kNoContent}});
    const std::string rest = server.url("/svc").substr(4);
    for (const char *scheme : {"ICAP+UNIX", "icap+unixx"})
        EXPECT_EQ(options(scheme + rest), VEL_ERROR_NONE);
    EXPECT_EQ(server.finish().size(), 2u);
    EXPECT_EQ(std::count(wire.connects.begin(), wire.connects.end(), AF_UNIX), 0);
}

/* Connecting. */

TEST_F(VelicapUnix, NoSocket)
{
    expect_no_connection("socket", EMFILE, "unable to create a unix domain socket");
}

TEST_F(VelicapUnix, SocketThatStaysBlocking)
{
    expect_no_connection("fcntl F_SETFL", EPERM, "fcntl() returned error -1");
}

TEST_F(VelicapUnix, SocketThatDoesNotBlockAlready)
{
    icap_server server(true, {{kNoContent}});
    wire.turns["fcntl"] = {gives(O_RDWR | O_NONBLOCK)};
    wire.turns["fcntl F_SETFL"] = {fails(EPERM)};
    EXPECT_EQ(options(server), VEL_ERROR_NONE);
    EXPECT_EQ(wire.turns["fcntl F_SETFL"].size(), 1u) << "nothing was set";
}

TEST_F(VelicapUnix, ConnectFails)
{
    for (const int platformerrno : {ECONNREFUSED, EINPROGRESS, EAGAIN, EACCES, EINTR}) {
        icap_server server(true, {{kNoContent}});
        wire.turns["connect"] = {fails(platformerrno)};
        EXPECT_EQ(options(server), VEL_ERROR_GENERIC);
        EXPECT_EQ(logged(), lines{said(7, "connecting to unix domain socket '" + server.path() +
                                              "' failed, errno " + std::to_string(platformerrno))});
        EXPECT_EQ(server.finish(), texts());
    }
}

/* Reading. The first attempt may fail in any way; then there is one more. */

struct errno_case {
    const char *name;
    int platformerrno;
    vel_error_t result;
    lines logged; /* by the first attempt, and by the second one again */
};

static void PrintTo(const errno_case &one, std::ostream *out)
{
    *out << one.name;
}

class VelicapRecv : public VelicapUnix, public testing::WithParamInterface<errno_case> {};

TEST_P(VelicapRecv, FirstAttemptIsForgotten)
{
    icap_server server(true, {{kNoContent, http_ending::close}});
    wire.turns["recv"] = {fails(GetParam().platformerrno), gives(0)};
    wire.turns["poll"] = {gives(1, POLLIN)};
    EXPECT_EQ(options(server), VEL_ERROR_END_OF_FILE);
    EXPECT_EQ(all_logged(), joined({GetParam().logged,
                                    {said_error(7, "unable to read ICAP result code,", 204)}}));
}

TEST_P(VelicapRecv, SecondAttemptIsTheResult)
{
    const errno_case &row = GetParam();
    icap_server server(true, {{kNoContent, http_ending::close}});
    wire.turns["recv"] = {fails(row.platformerrno), fails(row.platformerrno)};
    wire.turns["poll"] = {gives(1, POLLIN)};
    EXPECT_EQ(options(server), row.result);
    EXPECT_EQ(all_logged(),
              joined({row.logged,
                      row.logged,
                      {said_error(7, "recv() returned", row.result),
                       said_error(7, "unable to read ICAP result code,", row.result)}}));
}

static const errno_case kRecvCases[] = {
    {"Eintr", EINTR, VEL_ERROR_INTERRUPTED, {said(13, "recv() returned EINTR")}},
    {"Ebadf", EBADF, VEL_ERROR_INTERNAL, {said(6, "INTERNAL ERROR: recv() returned EBADF")}},
    {"Enomem", ENOMEM, VEL_ERROR_NO_MEMORY, {said(7, "recv() returned not enough memory")}},
    {"Efault", EFAULT, VEL_ERROR_INTERNAL, {said(6, "INTERNAL ERROR: recv() returned EFAULT")}},
    {"Einval", EINVAL, VEL_ERROR_INTERNAL, {said(6, "INTERNAL ERROR: recv() returned EINVAL")}},
    {"Eagain", EAGAIN, VEL_ERROR_WOULD_BLOCK, {said(13, "recv() returned EWOULDBLOCK")}},
    {"Enotsock",
     ENOTSOCK,
     VEL_ERROR_INTERNAL,
     {said(6, "INTERNAL ERROR: recv() returned ENOTSOCK")}},
    {"Econnreset", ECONNRESET, VEL_ERROR_CONNECTION_RESET, {said(7, "recv() returned ECONNRESET")}},
    {"Enotconn",
     ENOTCONN,
     VEL_ERROR_INTERNAL,
     {said(6, "INTERNAL ERROR: recv() returned ENOTCONN")}},
    {"Econnrefused",
     ECONNREFUSED,
     VEL_ERROR_INTERNAL,
     {said(7, "INTERNAL ERROR: recv() returned connection refused")}},
    {"Other",
     EPERM,
     VEL_ERROR_GENERIC,
     {said(6, "recv() returned an unhandled error " + std::to_string(EPERM))}},
};
INSTANTIATE_TEST_SUITE_P(Table, VelicapRecv, testing::ValuesIn(kRecvCases), support::row_name());

/* The second attempt has its own reason. */
TEST_F(VelicapUnix, TwoReasonsToReceiveNothing)
{
    icap_server server(true, {{kNoContent, http_ending::close}});
    wire.turns["recv"] = {fails(EINTR), fails(ECONNRESET)};
    EXPECT_EQ(options(server), VEL_ERROR_CONNECTION_RESET);
    EXPECT_EQ(all_logged(),
              (lines{said(13, "recv() returned EINTR"), said(7, "recv() returned ECONNRESET"),
                     said_error(7, "recv() returned", 104),
                     said_error(7, "unable to read ICAP result code,", 104)}));
}

/* A read that fails in each place of an answer. */
TEST_F(VelicapUnix, EachReadFails)
{
    const lines failed = {said(7, "recv() returned ECONNRESET"),
                          said(7, "recv() returned ECONNRESET"),
                          said_error(7, "recv() returned", 104)};
    static const std::string head =
        "ICAP/1.0 200 OK\r\nEncapsulated: res-hdr=0, res-body=4\r\n\r\n";
    const std::string answers[] = {
        "", "ICAP/1.0 200 OK\r\n", head, head + "abcd", head + "abcd5\r\n", head + "abcd5\r\nhel"};
    const support::log_line last = said(6, "unable to read encapsulated chunked body");
    const lines ends[] = {
        {said_error(7, "unable to read ICAP result code,", 104)},
        {said_error(7, "unable to read ICAP headers,", 104)},
        {said_error(7, "unable to read encapsulated headers information,", 104),
         said(6, "unable to read icap header")},
        {said_error(7, "unable to read chunk size,", 104), last},
        {said_error(7, "unable to read more body information,", 104), last},
        {said_error(7, "unable to read more body information,", 104), last},
    };
    for (size_t number = 0; number < std::size(answers); number++) {
        const std::string &answer = answers[number];
        icap_server server(true, {{answer, http_ending::hold}});
        /* A byte with each call, but for the waits, of which nobody knows the number. */
        wire.recvlimit = 1;
        size_t left = answer.size();
        wire.onrecv = [&left](ssize_t count) {
            left -= count > 0;
            if (left == 0)
                wire.turns["recv"] = {fails(ECONNRESET), fails(ECONNRESET)};
        };
        if (left == 0)
            wire.onrecv(0);
        vel_icap_set_method_respmod(icap);
        set_response(kResponse);
        EXPECT_EQ(exchange(server), VEL_ERROR_CONNECTION_RESET) << answer;
        const lines status = number == 0 ? lines() : lines{said_status(200)};
        EXPECT_EQ(logged(), joined({status, failed, ends[number]})) << answer;
        wire = {};
    }
    EXPECT_EQ(body(), "hel");
}

TEST_F(VelicapUnix, NulAndEndOfFile)
{
    icap_server server(true, {{"", http_ending::close}});
    EXPECT_EQ(options(server), VEL_ERROR_END_OF_FILE);
    EXPECT_EQ(logged(), lines{said_error(7, "unable to read ICAP result code,", 204)});
}

/* Waiting to read. */

static support::log_line polling(int error)
{
    return said_error(13, "polling read for a socket returned", error);
}

struct poll_case {
    const char *name;
    wire_turn turn;
    vel_error_t result;
    lines logged;
};

static void PrintTo(const poll_case &one, std::ostream *out)
{
    *out << one.name;
}

class VelicapPoll : public VelicapUnix, public testing::WithParamInterface<poll_case> {};

TEST_P(VelicapPoll, ForAnAnswer)
{
    const poll_case &row = GetParam();
    icap_server server(true, {{"", http_ending::hold}});
    wire.turns["recv"] = {fails(EAGAIN)};
    wire.turns["poll"] = {row.turn};
    EXPECT_EQ(options(server), row.result);
    EXPECT_EQ(all_logged(),
              joined({{kWouldBlock},
                      row.logged,
                      {polling(row.result),
                       said_error(7, "unable to read ICAP result code,", row.result)}}));
}

static const poll_case kPollCases[] = {
    {"TimeOut", gives(0), VEL_ERROR_TIMED_OUT, {}},
    {"NoEvent",
     gives(1),
     VEL_ERROR_INTERNAL,
     {said(6, "INTERNAL ERROR: poll() returned 1 but no event is available")}},
    {"HangUpAlone",
     gives(1, POLLHUP),
     VEL_ERROR_INTERNAL,
     {said(6, "INTERNAL ERROR: poll() returned 1 but no event is available")}},
    {"ErrorAlone",
     gives(1, POLLERR),
     VEL_ERROR_INTERNAL,
     {said(6, "INTERNAL ERROR: poll() returned 1 but no event is available")}},
    {"Eintr", fails(EINTR), VEL_ERROR_INTERRUPTED, {}},
    {"Enomem", fails(ENOMEM), VEL_ERROR_NO_MEMORY, {}},
    {"Efault", fails(EFAULT), VEL_ERROR_INTERNAL, {}},
    {"Einval", fails(EINVAL), VEL_ERROR_INTERNAL, {}},
    {"Other",
     fails(EPERM),
     VEL_ERROR_GENERIC,
     {said(6, "poll() returned an unhandled error " + std::to_string(EPERM))}},
};
INSTANTIATE_TEST_SUITE_P(Table, VelicapPoll, testing::ValuesIn(kPollCases), support::row_name());

TEST_F(VelicapUnix, HangUpWithBytesIsAnEvent)
{
    icap_server server(true, {{kNoContent, http_ending::close}});
    wire.turns["recv"] = {fails(EAGAIN), gives(0)};
    wire.turns["poll"] = {gives(1, POLLIN | POLLHUP)};
    EXPECT_EQ(options(server), VEL_ERROR_END_OF_FILE);
}

/* A wait is in milliseconds, rounded up, and has all the time that is left. */
TEST_F(VelicapUnix, LengthOfAWait)
{
    struct wait_row {
        int seconds;
        unsigned int microseconds;
        int milliseconds;
    };
    const wait_row rows[] = {
        {-1, 0, -1},  {-7, 5, -1},  {0, 1, 1},         {0, 999, 1},       {0, 1000, 1},
        {0, 1001, 2}, {3, 0, 3000}, {3, 500000, 3500}, {3, 999999, 4000}, {2000000, 1, 2000000001}};
    for (const wait_row &row : rows) {
        for (const bool writes : {false, true}) {
            icap_server server(true, {{"", http_ending::hold}});
            wire = {};
            wire.played = true;
            if (writes)
                wire.turns["send"] = {fails(EAGAIN)};
            else
                wire.turns["recv"] = {fails(EAGAIN)};
            wire.turns["poll"] = {gives(0)};
            vel_icap_set_timeout(icap, row.seconds, row.microseconds);
            EXPECT_EQ(options(server), VEL_ERROR_TIMED_OUT);
            EXPECT_EQ(wire.waits, std::vector<int>{row.milliseconds}) << row.seconds;
            log.clear();
        }
    }
}

/* Writing. */

class VelicapSendErrno : public VelicapUnix, public testing::WithParamInterface<errno_case> {};

TEST_P(VelicapSendErrno, IsTheResult)
{
    const errno_case &row = GetParam();
    icap_server server(true, {{"", http_ending::hold}});
    wire.turns["send"] = {fails(row.platformerrno)};
    EXPECT_EQ(options(server), row.result);
    const size_t length = server.head("OPTIONS", "/svc", "null-body=0").size();
    EXPECT_EQ(all_logged(),
              joined({row.logged,
                      {said(7, "short write, 0/" + std::to_string(length) + " bytes written")}}));
    EXPECT_EQ(server.finish(), texts{""});
}

static const errno_case kSendCases[] = {
    {"Epipe", EPIPE, VEL_ERROR_BROKEN_PIPE, {}},
    {"Econnreset",
     ECONNRESET,
     VEL_ERROR_CONNECTION_RESET,
     {said(7, "unable to write to socket, error " + std::to_string(ECONNRESET))}},
    {"Other",
     ENOBUFS,
     VEL_ERROR_GENERIC,
     {said(7, "an unmapped error value " + std::to_string(ENOBUFS))}},
    {"Eintr",
     EINTR,
     VEL_ERROR_GENERIC,
     {said(7, "an unmapped error value " + std::to_string(EINTR))}},
};
INSTANTIATE_TEST_SUITE_P(Table, VelicapSendErrno, testing::ValuesIn(kSendCases),
                         support::row_name());

TEST_F(VelicapUnix, WriteWaitsAndGoesOn)
{
    icap_server server(true, {{kNoContent}});
    wire.sendlimit = 10;
    wire.turns["send"] = {fails(EAGAIN), passes(), fails(EWOULDBLOCK)};
    /* Whatever the event is. */
    wire.turns["poll"] = {gives(1, POLLHUP), gives(1)};
    EXPECT_EQ(options(server), VEL_ERROR_NONE);
    EXPECT_EQ(server.finish(), texts{server.head("OPTIONS", "/svc", "null-body=0")});
    EXPECT_EQ(logged(), lines{said_status(204)});
}

class VelicapPollWrite : public VelicapUnix, public testing::WithParamInterface<poll_case> {};

TEST_P(VelicapPollWrite, IsTheResult)
{
    const poll_case &row = GetParam();
    icap_server server(true, {{"", http_ending::hold}});
    wire.turns["send"] = {fails(EAGAIN)};
    wire.turns["poll"] = {row.turn};
    EXPECT_EQ(options(server), row.result);
    const size_t length = server.head("OPTIONS", "/svc", "null-body=0").size();
    EXPECT_EQ(all_logged(),
              joined({row.logged,
                      {said(7, "short write, 0/" + std::to_string(length) + " bytes written")}}));
}

static const poll_case kPollWriteCases[] = {
    {"TimeOut", gives(0), VEL_ERROR_TIMED_OUT, {}},
    {"Eintr", fails(EINTR), VEL_ERROR_INTERRUPTED, {}},
    {"Enomem", fails(ENOMEM), VEL_ERROR_NO_MEMORY, {}},
    {"Efault", fails(EFAULT), VEL_ERROR_INTERNAL, {}},
    {"Einval", fails(EINVAL), VEL_ERROR_INTERNAL, {}},
    {"Other",
     fails(EPERM),
     VEL_ERROR_GENERIC,
     {said(6, "poll() returned an unhandled error " + std::to_string(EPERM))}},
};
INSTANTIATE_TEST_SUITE_P(Table, VelicapPollWrite, testing::ValuesIn(kPollWriteCases),
                         support::row_name());

/* A server that has gone before the body is sent. */
TEST_F(VelicapUnix, PeerGoesWhileTheBodyIsSent)
{
    const std::string large(32 << 20, 'x');
    icap_server server(true, {{"", http_ending::reset, 1}});
    vel_icap_set_method_reqmod(icap);
    set_request(kRequest);
    set_request_body(large);
    const vel_error_t result = exchange(server);
    EXPECT_TRUE(result == VEL_ERROR_BROKEN_PIPE || result == VEL_ERROR_CONNECTION_RESET) << result;
    EXPECT_EQ(logged().back(), said_error(7, "unable to send chunk,", result));
}

/* TCP, whose calls have tests of their own. */

TEST_F(VelicapUnix, TcpIsRefused)
{
    unsigned int port;
    {
        http_server server({});
        port = server.port();
    }
    EXPECT_EQ(options("icap://127.0.0.1:" + std::to_string(port) + "/"),
              VEL_ERROR_CONNECTION_REFUSED);
    EXPECT_EQ(logged(), lines{said_error(7, "connection failed,", 111)});
}

/* Anything that is not the one scheme goes over TCP, to the port that is usual for it. */
TEST_F(VelicapUnix, UsualPorts)
{
    const std::pair<const char *, int> rows[] = {
        {"icap://127.0.0.1/x", 1344}, {"http://127.0.0.1/x", 80}, {"icap://127.0.0.1:7/x", 7}};
    for (const auto &[url, port] : rows) {
        wire.ports.clear();
        wire.turns["connect"] = {fails(ECONNREFUSED)};
        const vel_error_t result = options(url);
        EXPECT_NE(result, VEL_ERROR_NONE);
        EXPECT_EQ(wire.ports, std::vector<int>{port}) << url;
        EXPECT_EQ(logged(), lines{said_error(7, "connection failed,", result)});
    }
}

TEST_F(VelicapUnix, HttpUrlSpeaksIcap)
{
    icap_server server(false, {{kNoContent}});
    const std::string url = "http" + server.url("/svc").substr(4);
    EXPECT_EQ(options(url), VEL_ERROR_NONE);
    std::string head = server.head("OPTIONS", "/svc", "null-body=0");
    head.replace(head.find("icap:"), 4, "http");
    EXPECT_EQ(server.finish(), texts{head});
}
