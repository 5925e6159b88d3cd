#include <filesystem>
#include <map>
#include <memory>

#include "peers/client.h"
#include "support/peer.h"
#include "support/rows.h"

using namespace peers;
using support::peer;

/* /c0 is the file, and each of the others redirects to the one before. */
static std::string chain_of_redirects()
{
    std::string text = "location = /c0 { try_files /4095 =404; }\n";
    for (int i = 1; i <= 10; i++)
        text += "location = /c" + std::to_string(i) + " { return 302 /c" + std::to_string(i - 1) +
                "; }\n";
    return text;
}

static std::string redirects_with_every_status()
{
    std::string text;
    for (const char *status : {"301", "302", "303", "307", "308"}) {
        const std::string name = std::string("location = /") + status;
        text += name + "-absolute { return " + status + " http://127.0.0.1:@PORT@/4095; }\n";
        text += name + "-path { return " + status + " /4095; }\n";
        text += name + "-relative { return " + status + " 4095; }\n";
    }
    return text;
}

static std::string many_headers()
{
    std::string text = "location = /many { return 200 many;\n";
    for (int i = 0; i < 300; i++) {
        const std::string number = std::to_string(i);
        text += "add_header X-" + number + " value" + number + ";\n";
    }
    return text + "}\n";
}

static const char kLocations[] = R"(
large_client_header_buffers 4 8k;
client_max_body_size 16m;
location = /loop { return 302 /loop; }
location = /empty { return 302 ""; }
location = /nowhere { proxy_pass http://127.0.0.1:@PORT@/loop; proxy_hide_header Location; }
location = /404 { return 404 "nothing here\n"; }
location = /444 { return 444; }
location = /long { add_header X-Long $arg_x; return 200 long; }
location = /echo { add_header X-Method $request_method; add_header X-Length $http_content_length;
                   add_header X-Host $http_host; return 200 $request; }
location = /slow { limit_rate 1k; try_files /1MiB =404; }
location /unsized/ { ssi on; ssi_types text/plain; alias @DIR@/html/; }
location /put/ { dav_methods PUT DELETE; root @DIR@; }
)";

static constexpr std::pair<const char *, size_t> kFiles[] = {
    {"0", 0},       {"1", 1},           {"4095", 4095},         {"4096", 4096},
    {"4097", 4097}, {"1MiB", 1U << 20}, {"256MiB", 256U << 20},
};

/* One server for all tests, as the large file takes long to make. */
class server_environment : public testing::Environment {
  public:
    void SetUp() override
    {
        server = std::make_unique<peer>();
        const std::string put = server->path("put");
        std::filesystem::create_directory(put);
        std::filesystem::permissions(put, std::filesystem::perms::all);
        support::setup_nginx(*server, kLocations + chain_of_redirects() +
                                          redirects_with_every_status() + many_headers());
        for (const auto &[name, size] : kFiles)
            write_random(server->path(std::string("html/") + name), size);
    }
    void TearDown() override
    {
        server.reset();
    }

    static inline std::unique_ptr<peer> server;
};

[[maybe_unused]] static const auto *kEnvironment =
    testing::AddGlobalTestEnvironment(new server_environment);

class Nginx : public testing::Test {
  protected:
    void SetUp() override
    {
        ASSERT_EQ(server_.failure(), "");
    }

    static std::string served(const std::string &name)
    {
        return server_environment::server->path("html/" + name);
    }
    static const std::string &served_digest(const std::string &name)
    {
        std::string &digest = digests_[name];
        if (digest.empty())
            digest = digest_of(served(name));
        return digest;
    }
    static std::string url(const std::string &target)
    {
        return server_environment::server->url(target);
    }

    const peer &server_ = *server_environment::server;
    static inline std::map<std::string, std::string> digests_; /* of served files */

    support::temporary_directory here_;
    support::log_capture log_;
};

/* ---- bodies ---------------------------------------------------------------------------------- */

struct file_row {
    std::string name;
    int64_t size;
};

class NginxFile : public Nginx, public testing::WithParamInterface<file_row> {};
class NginxUnsized : public NginxFile {};

TEST_P(NginxFile, Digest)
{
    client client;
    std::string digest;
    EXPECT_EQ(client.perform_digest(url("/" + GetParam().name), &digest), VEL_ERROR_NONE);
    EXPECT_EQ(client.status(), 200U);
    EXPECT_EQ(client.header("Content-Length"), std::to_string(GetParam().size));
    EXPECT_EQ(client.current, GetParam().size);
    EXPECT_EQ(client.total, GetParam().size);
    EXPECT_EQ(digest, served_digest(GetParam().name));
}

TEST_P(NginxFile, UrlToFile)
{
    EXPECT_EQ(vel_http_generic_get_url_to_file(url("/" + GetParam().name).c_str(), "copy",
                                               vel_http_lite_create),
              VEL_ERROR_NONE);
    EXPECT_EQ(digest_of("copy"), served_digest(GetParam().name));
    EXPECT_EQ(http_lines(&log_), (log_lines{lite(13, "the HTTP status code is 200")}));
}

TEST_P(NginxUnsized, EndsWithTheConnection)
{
    client client;
    std::string digest;
    EXPECT_EQ(client.perform_digest(url("/unsized/" + GetParam().name), &digest), VEL_ERROR_NONE);
    EXPECT_EQ(client.status(), 200U);
    EXPECT_EQ(client.header("content-length"), "<none>");
    EXPECT_EQ(client.current, GetParam().size);
    EXPECT_EQ(client.total, -1);
    EXPECT_EQ(digest, served_digest(GetParam().name));
}

static const file_row kFileRows[] = {
    {"0", 0},       {"1", 1},          {"4095", 4095},       {"4096", 4096},
    {"4097", 4097}, {"1MiB", 1 << 20}, {"256MiB", 256 << 20}};
INSTANTIATE_TEST_SUITE_P(Size, NginxFile, testing::ValuesIn(kFileRows), support::row_name());
/* Of an empty file nginx always says the length. */
INSTANTIATE_TEST_SUITE_P(Size, NginxUnsized,
                         testing::ValuesIn(std::begin(kFileRows) + 1, std::end(kFileRows)),
                         support::row_name());

TEST_F(Nginx, BodyInMemory)
{
    velhttp *velhttp = vel_http_lite_create();
    EXPECT_EQ(vel_http_set_url(velhttp, url("/1MiB").c_str()), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_perform(velhttp), VEL_ERROR_NONE);
    char *body = nullptr;
    size_t size = 0;
    EXPECT_EQ(vel_http_get_response_body_and_size(velhttp, &body, &size), VEL_ERROR_NONE);
    EXPECT_TRUE(std::string(body, size) == support::read_file(served("1MiB")));
    vel_free(body);
    vel_http_destroy(velhttp);
}

/* A context serves one transfer after another, each over a connection of its own. */
TEST_F(Nginx, ManyTransfersWithOneContext)
{
    client client;
    for (int i = 0; i < 200; i++) {
        const std::string name = i % 2 ? "4097" : "1";
        ASSERT_EQ(client.perform(url("/" + name)), VEL_ERROR_NONE);
        ASSERT_TRUE(client.body() == support::read_file(served(name)));
    }
}

TEST_F(Nginx, HostNameWithSeveralAddresses)
{
    client client;
    const std::string port = std::to_string(server_.port());
    EXPECT_EQ(client.perform("http://localhost:" + port + "/echo"), VEL_ERROR_NONE);
    EXPECT_EQ(client.status(), 200U);
    EXPECT_EQ(client.header("x-host"), "localhost:" + port);
}

TEST_F(Nginx, HeadHasNoBody)
{
    client client;
    EXPECT_EQ(vel_http_set_method(client, "HEAD"), VEL_ERROR_NONE);
    EXPECT_EQ(client.perform(url("/4096")), VEL_ERROR_NONE);
    EXPECT_EQ(client.status(), 200U);
    EXPECT_EQ(client.current, 0);
    EXPECT_EQ(client.total, 4096);
}

/* ---- redirects ------------------------------------------------------------------------------- */

class NginxRedirect : public Nginx, public testing::WithParamInterface<const char *> {};
class NginxRedirectFollowed : public NginxRedirect {};
class NginxRedirectFinal : public NginxRedirect {};

static const log_lines kFollowed = {lite(13, "the HTTP status code is 302"),
                                    front(13, "Got HTTP redirect (301/302)"),
                                    lite(13, "the HTTP status code is 200")};

TEST_P(NginxRedirectFollowed, Absolute)
{
    client client;
    const std::string status = GetParam();
    EXPECT_EQ(client.perform(url("/" + status + "-absolute")), VEL_ERROR_NONE);
    EXPECT_EQ(client.status(), 200U);
    EXPECT_EQ(client.current, 4095);
    EXPECT_EQ(digest_of("body"), digest_of(served("4095")));
}

TEST_P(NginxRedirectFollowed, Path)
{
    client client;
    const std::string status = GetParam();
    EXPECT_EQ(client.perform(url("/" + status + "-path")), VEL_ERROR_NONE);
    EXPECT_EQ(client.status(), 200U);
    EXPECT_EQ(digest_of("body"), digest_of(served("4095")));
    log_lines lines = kFollowed;
    lines[0].text = "the HTTP status code is " + status;
    EXPECT_EQ(http_lines(&log_), lines);
}

/* A location is taken as it stands. */
TEST_P(NginxRedirectFollowed, RelativeIsNoUrl)
{
    client client;
    const std::string status = GetParam();
    EXPECT_EQ(client.perform(url("/" + status + "-relative")), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(std::to_string(client.status()), status);
    EXPECT_EQ(client.header("location"), "4095");
    EXPECT_EQ(client.body(), "");
    EXPECT_EQ(http_lines(&log_),
              (log_lines{lite(13, "the HTTP status code is " + status),
                         front(13, "Got HTTP redirect (301/302)"), front(6, "invalid URL '4095'"),
                         front(7, "Unable to set the redirect URL '4095'")}));
}

INSTANTIATE_TEST_SUITE_P(Status, NginxRedirectFollowed, testing::Values("301", "302"));

TEST_P(NginxRedirectFinal, IsAnAnswer)
{
    const std::string status = GetParam();
    for (const std::string form : {"absolute", "path", "relative"}) {
        client client;
        EXPECT_EQ(client.perform(url("/" + status + "-" + form)), VEL_ERROR_NONE);
        EXPECT_EQ(std::to_string(client.status()), status);
        EXPECT_THAT(client.header("location"), testing::EndsWith("4095"));
        EXPECT_THAT(client.body(), testing::HasSubstr("<title>" + status));
        EXPECT_EQ(http_lines(&log_), (log_lines{lite(13, "the HTTP status code is " + status)}));
    }
}

INSTANTIATE_TEST_SUITE_P(Status, NginxRedirectFinal, testing::Values("303", "307", "308"));

TEST_F(Nginx, LoopCostsTenRequests)
{
    client client;
    EXPECT_EQ(client.perform(url("/loop")), VEL_ERROR_OUT_OF_RANGE);
    EXPECT_EQ(client.status(), 302U);
    log_lines lines;
    for (int i = 0; i < 10; i++) {
        lines.push_back(kFollowed[0]);
        lines.push_back(kFollowed[1]);
    }
    lines.push_back(front(7, "Too many redirects (10)"));
    EXPECT_EQ(http_lines(&log_), lines);
    EXPECT_EQ(server_.count_lines("access.log", "GET /loop ", 10), 10);
}

TEST_F(Nginx, TenRequestsReachTheFile)
{
    client client;
    EXPECT_EQ(client.perform(url("/c9")), VEL_ERROR_NONE);
    EXPECT_EQ(client.status(), 200U);
    EXPECT_EQ(digest_of("body"), digest_of(served("4095")));
}

TEST_F(Nginx, ElevenRequestsDoNot)
{
    client client;
    EXPECT_EQ(client.perform(url("/c10")), VEL_ERROR_OUT_OF_RANGE);
    EXPECT_EQ(client.status(), 302U);
    EXPECT_EQ(client.header("location"), "/c0");
    EXPECT_EQ(client.body(), "");
    EXPECT_EQ(http_lines(&log_).back(), front(7, "Too many redirects (10)"));
}

TEST_F(Nginx, DirectoryWithoutSlashRedirects)
{
    std::filesystem::create_directory(served("directory"));
    support::write_file(served("directory/index.html"), "index");
    client client;
    EXPECT_EQ(client.perform(url("/directory")), VEL_ERROR_NONE);
    EXPECT_EQ(client.status(), 200U);
    EXPECT_EQ(client.body(), "index");
}

TEST_F(Nginx, MethodBodyAndHeadersAreKept)
{
    client client;
    vel_http_set_method_post(client);
    EXPECT_EQ(vel_http_set_request_body(client, "12345", 5), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_add_header(client, "X-A: 1"), VEL_ERROR_NONE);
    support::peer second;
    support::setup_nginx(second, "location / { add_header X-A $http_x_a; add_header X-Length "
                                 "$http_content_length; return 200 $request; }\n"
                                 "location = /r { return 302 /here; }");
    ASSERT_EQ(second.failure(), "");
    EXPECT_EQ(client.perform(second.url("/r")), VEL_ERROR_NONE);
    EXPECT_EQ(client.body(), "POST /here HTTP/1.0");
    EXPECT_EQ(client.header("x-a"), "1");
    EXPECT_EQ(client.header("x-length"), "5");
}

/* ---- headers --------------------------------------------------------------------------------- */

TEST_F(Nginx, LongestHeaderLine)
{
    client client; /* "X-Long: ", the value, CR LF: 4096 bytes */
    const std::string value(4096 - 10, 'A');
    EXPECT_EQ(client.perform(url("/long?x=" + value)), VEL_ERROR_NONE);
    EXPECT_EQ(client.header("x-long"), value);
    EXPECT_EQ(client.body(), "long");
}

TEST_F(Nginx, HeaderLineTooLong)
{
    client client;
    const std::string value(4096 - 9, 'A');
    EXPECT_EQ(client.perform(url("/long?x=" + value)), VEL_ERROR_MESSAGE_TOO_LONG);
    EXPECT_EQ(client.body(), "");
    EXPECT_EQ(http_lines(&log_),
              (log_lines{
                  lite(13, "the HTTP status code is 200"),
                  lite(6, "input line was too long to fit the buffer (4096 bytes)"),
                  lite(7, with_error("unable to read HTTP headers", VEL_ERROR_MESSAGE_TOO_LONG))}));
}

TEST_F(Nginx, ManyHeaders)
{
    client client;
    EXPECT_EQ(client.perform(url("/many")), VEL_ERROR_NONE);
    EXPECT_EQ(client.body(), "many");
    for (int i = 0; i < 300; i++) {
        const std::string number = std::to_string(i);
        EXPECT_EQ(client.header(("x-" + number).c_str()), "value" + number);
    }
}

/* The server answers and closes while the request is still being sent. */
TEST_F(Nginx, RequestHeaderTooLong)
{
    client client;
    EXPECT_EQ(vel_http_add_header(client, ("X-Large: " + std::string(9000, 'A')).c_str()),
              VEL_ERROR_NONE);
    EXPECT_EQ(client.perform(url("/echo")), VEL_ERROR_NONE);
    EXPECT_EQ(client.status(), 400U);
    EXPECT_THAT(client.body(), testing::HasSubstr("Request Header Or Cookie Too Large"));
}

/* ---- request bodies -------------------------------------------------------------------------- */

struct upload_row {
    std::string name;
    size_t size;
};

class NginxUpload : public Nginx, public testing::WithParamInterface<upload_row> {};

TEST_P(NginxUpload, PutAndGetBack)
{
    client client;
    write_random("upload", GetParam().size);
    const std::string content = support::read_file("upload");
    const std::string target = url("/put/" + GetParam().name);
    vel_http_set_method_put(client);
    EXPECT_EQ(vel_http_set_request_body(client, content.data(), content.size()), VEL_ERROR_NONE);
    EXPECT_EQ(client.perform(target), VEL_ERROR_NONE);
    EXPECT_EQ(client.status(), 201U);
    EXPECT_EQ(digest_of(server_.path("put/" + GetParam().name)), digest_of("upload"));

    EXPECT_EQ(vel_http_reset(client), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_generic_get_url_to_file(target.c_str(), "back", vel_http_lite_create),
              VEL_ERROR_NONE);
    EXPECT_EQ(digest_of("back"), digest_of("upload"));

    vel_http_set_method_delete(client);
    EXPECT_EQ(client.perform(target), VEL_ERROR_NONE);
    EXPECT_EQ(client.status(), 204U);
    EXPECT_FALSE(std::filesystem::exists(server_.path("put/" + GetParam().name)));
}

static const upload_row kUploadRows[] = {
    {"Empty", 0}, {"Byte", 1}, {"Page", 4096}, {"Large", 8U << 20}};
INSTANTIATE_TEST_SUITE_P(Size, NginxUpload, testing::ValuesIn(kUploadRows), support::row_name());

TEST_F(Nginx, EmptyPostSaysItsLength)
{
    client client;
    vel_http_set_method_post(client);
    EXPECT_EQ(client.perform(url("/echo")), VEL_ERROR_NONE);
    EXPECT_EQ(client.body(), "POST /echo HTTP/1.0");
    EXPECT_EQ(client.header("x-method"), "POST");
    EXPECT_EQ(client.header("x-length"), "0");
}

/* ---- failures -------------------------------------------------------------------------------- */

TEST_F(Nginx, NotFoundIsAnAnswer)
{
    client client;
    EXPECT_EQ(client.perform(url("/404")), VEL_ERROR_NONE);
    EXPECT_EQ(client.status(), 404U);
    EXPECT_EQ(client.body(), "nothing here\n");
}

TEST_F(Nginx, NotFoundFailsAFetchToFile)
{
    EXPECT_EQ(vel_http_generic_get_url_to_file(url("/404").c_str(), "copy", vel_http_lite_create),
              VEL_ERROR_GENERIC);
    EXPECT_EQ(support::read_file("copy"), "nothing here\n");
    EXPECT_EQ(http_lines(&log_), (log_lines{lite(13, "the HTTP status code is 404"),
                                            front(7, "The HTTP server returned status code 404")}));
}

TEST_F(Nginx, ClosedWithoutAnAnswer)
{
    client client;
    EXPECT_EQ(client.perform(url("/444")), VEL_ERROR_END_OF_FILE);
    EXPECT_EQ(client.status(), 0U);
    EXPECT_EQ(
        http_lines(&log_),
        (log_lines{lite(7, with_error("reading input line failed", VEL_ERROR_END_OF_FILE)),
                   lite(7, with_error("reading HTTP status code failed", VEL_ERROR_END_OF_FILE))}));
}

TEST_F(Nginx, RedirectWithoutLocation)
{
    client client;
    EXPECT_EQ(client.perform(url("/nowhere")), VEL_ERROR_PROTOCOL);
    EXPECT_EQ(client.status(), 302U);
    EXPECT_EQ(http_lines(&log_).back(), front(7, "Redirect without Location header"));
}

TEST_F(Nginx, RedirectWithAnEmptyLocation)
{
    client client;
    EXPECT_EQ(client.perform(url("/empty")), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(client.status(), 302U);
    EXPECT_EQ(http_lines(&log_).back(), front(7, "Unable to set the redirect URL ''"));
}

TEST_F(Nginx, SlowBodyMeetsTheTimeLimit)
{
    client client;
    vel_http_set_timeout(client, 0, 300000);
    EXPECT_EQ(client.perform(url("/slow")), VEL_ERROR_TIMER_EXPIRED);
    EXPECT_EQ(client.status(), 200U);
    EXPECT_LT(client.current, 1 << 20);
    const log_lines lines = http_lines(&log_);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], lite(13, "the HTTP status code is 200"));
    EXPECT_EQ(lines[1], front(7, "the full transfer timer expired"));
    /* The limit passes before a wait or during it. */
    EXPECT_THAT(lines[2], testing::AnyOf(lite(7, "a timeout occurred"),
                                         lite(7, with_error("unable to read more body information",
                                                            VEL_ERROR_TIMER_EXPIRED))));
}

/* The Host line has the address without its brackets, which nginx refuses. */
TEST_F(Nginx, Ipv6LiteralIsRefused)
{
    support::peer second;
    support::setup_nginx(second, "listen [::1]:@PORT@;");
    ASSERT_EQ(second.failure(), "");
    client client;
    EXPECT_EQ(client.perform("http://[::1]:" + std::to_string(second.port()) + "/"),
              VEL_ERROR_NONE);
    EXPECT_EQ(client.status(), 400U);
}

TEST_F(Nginx, StoppedServerRefuses)
{
    support::peer second;
    support::setup_nginx(second, "");
    ASSERT_EQ(second.failure(), "");
    second.stop();
    client client;
    EXPECT_EQ(client.perform(second.url("/")), VEL_ERROR_CONNECTION_REFUSED);
    EXPECT_EQ(http_lines(&log_),
              (log_lines{lite(7, with_error("connection failed", VEL_ERROR_CONNECTION_REFUSED))}));
}
