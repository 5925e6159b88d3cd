#include "support/peer.h"

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <netinet/in.h>
#include <poll.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/tempdir.h"

namespace support {

constexpr int kStartSeconds = 15; /* with sanitizers on a machine that is busy */
constexpr int kStopMilliseconds = 5000;
constexpr int kAttempts = 5; /* another program may have taken the port meanwhile */
constexpr useconds_t kLookAgain = 10000;

static sockaddr_in loopback(unsigned int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

/* A port that nothing listens on at the moment. */
static unsigned int free_port()
{
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof(address);
    if (descriptor < 0 || bind(descriptor, reinterpret_cast<sockaddr *>(&address), length) != 0 ||
        getsockname(descriptor, reinterpret_cast<sockaddr *>(&address), &length) != 0)
        abort();
    close(descriptor);
    return ntohs(address.sin_port);
}

static bool is_listening(unsigned int port)
{
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    const bool connected =
        connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
    close(descriptor);
    return connected;
}

/* Where a program is, or "". The directories of the administrator are not in everybody's path. */
static std::string find_program(const std::string &program)
{
    const char *path = getenv("PATH");
    std::string directories = std::string(path ? path : "") + ":/usr/sbin:/sbin:/usr/local/sbin:";
    for (size_t begin = 0, end; begin < directories.size(); begin = end + 1) {
        end = directories.find(':', begin);
        const std::string name = directories.substr(begin, end - begin) + "/" + program;
        if (access(name.c_str(), X_OK) == 0)
            return name;
    }
    return "";
}

peer::peer()
{
    char name[] = "/tmp/velpeerXXXXXX";
    if (!mkdtemp(name) || chmod(name, 0755) != 0)
        abort();
    directory_ = name;
}

peer::~peer()
{
    stop();
    std::filesystem::remove_all(directory_);
}

void peer::stop()
{
    if (watcher_ < 0)
        return;
    close(lifeline_);
    while (waitpid(watcher_, nullptr, 0) < 0 && errno == EINTR) {
    }
    watcher_ = -1;
}

std::string peer::fill_in(std::string text) const
{
    const std::pair<std::string, std::string> words[] = {{"@DIR@", directory_},
                                                         {"@PORT@", std::to_string(port_)}};
    for (const auto &[word, value] : words) {
        for (size_t at = 0; (at = text.find(word, at)) != std::string::npos; at += value.size())
            text.replace(at, word.size(), value);
    }
    return text;
}

/* Ends the program when the lifeline is closed; never returns. Only system calls from here on: this
 * is a copy of a process that may have had threads. */
[[noreturn]] static void watch(pid_t program, int lifeline, int stopsignal)
{
    const int process = static_cast<int>(syscall(SYS_pidfd_open, program, 0));
    pollfd descriptors[] = {{process, POLLIN, 0}, {lifeline, POLLIN, 0}};
    while (poll(descriptors, 2, -1) < 0 && errno == EINTR) {
    }
    if (!descriptors[0].revents) {
        kill(program, stopsignal);
        poll(descriptors, 1, kStopMilliseconds);
    }
    kill(-program, SIGKILL);
    while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
    }
    _exit(0);
}

/* Runs the program in a process group of its own, and the watcher between. */
void peer::run(const peer_setup &setup)
{
    const std::string program = find_program(setup.program);
    const std::string output = path("output");
    std::vector<std::string> words = {program};
    for (const std::string &argument : setup.arguments)
        words.push_back(fill_in(argument));
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);

    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        abort();
    lifeline_ = ends[1];
    watcher_ = fork();
    if (watcher_ != 0) {
        close(ends[0]);
        return;
    }
    /* No other descriptor is kept: not the lifeline of another peer, nor the output that the
     * caller of the test program waits for the end of. */
    const int lifeline = 3;
    if (ends[0] != lifeline)
        dup3(ends[0], lifeline, O_CLOEXEC);
    const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    dup2(file, STDOUT_FILENO);
    dup2(file, STDERR_FILENO);
    syscall(SYS_close_range, lifeline + 1, ~0U, 0); /* musl has no function for it */
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    signal(SIGINT, SIG_IGN); /* the terminal's; the lifeline tells */
    const pid_t child = fork();
    if (child != 0) {
        setpgid(child, child);
        watch(child, lifeline, setup.stopsignal);
    }
    setpgid(0, 0);
    signal(SIGINT, SIG_DFL);
    signal(SIGPIPE, SIG_DFL);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (chdir(directory_.c_str()) == 0)
        execv(arguments[0], arguments.data());
    _exit(127);
}

bool peer::is_running()
{
    if (waitpid(watcher_, nullptr, WNOHANG) == 0)
        return true;
    close(lifeline_);
    watcher_ = -1;
    return false;
}

bool peer::wait_until_listening()
{
    for (int i = 0; i < kStartSeconds * 1000000 / static_cast<int>(kLookAgain); i++) {
        if (!is_running())
            return false;
        if (is_listening(port_))
            return is_running();
        usleep(kLookAgain);
    }
    return false;
}

bool peer::start(const peer_setup &setup)
{
    if (find_program(setup.program).empty()) {
        failure_ = std::string("there is no program ") + setup.program +
                   ": ./dev test installs it, or: apt-get install " + setup.package;
        return false;
    }
    for (int i = 0; i < kAttempts; i++) {
        port_ = free_port();
        write_file(path(setup.configname), fill_in(setup.config));
        run(setup);
        if (wait_until_listening())
            return true;
        stop();
        failure_ = std::string(setup.program) + " does not start: " + read_file(path("output"));
    }
    return false;
}

int peer::count_lines(const std::string &name, const std::string &text, int atleast) const
{
    int count = 0;
    for (int i = 0; i < 1000 && count < atleast; i++) {
        if (i > 0)
            usleep(kLookAgain);
        std::ifstream in(path(name));
        count = 0;
        for (std::string line; std::getline(in, line);)
            count += line.find(text) != std::string::npos;
    }
    return count;
}

void setup_nginx(peer &peer, const std::string &locations)
{
    std::filesystem::create_directory(peer.path("html"));
    peer.start({"nginx",
                "nginx-light",
                {"-c", "@DIR@/nginx.conf", "-e", "@DIR@/error.log"},
                "nginx.conf",
                "worker_processes 1; daemon off; error_log @DIR@/error.log; pid @DIR@/nginx.pid;\n"
                "events { worker_connections 256; }\n"
                "http { access_log @DIR@/access.log; default_type text/plain;\n"
                " client_body_temp_path @DIR@/b; proxy_temp_path @DIR@/p;\n"
                " fastcgi_temp_path @DIR@/f; uwsgi_temp_path @DIR@/u; scgi_temp_path @DIR@/s;\n"
                " server { listen 127.0.0.1:@PORT@; server_name h;\n"
                "  absolute_redirect off; root @DIR@/html;\n" +
                    locations + " } }\n",
                SIGTERM});
}

void setup_tinyproxy(peer &peer, const std::string &lines)
{
    peer.start({"tinyproxy",
                "tinyproxy",
                {"-d", "-c", "@DIR@/tinyproxy.conf"},
                "tinyproxy.conf",
                "Port @PORT@\nListen 127.0.0.1\nTimeout 30\nMaxClients 50\n"
                "LogFile \"@DIR@/access.log\"\nLogLevel Info\nAllow 127.0.0.1\n" +
                    lines,
                SIGTERM});
}

/* squid does not run as root: it becomes the user "proxy", who has to write here. */
static void hand_to_proxy_user(const peer &peer)
{
    const passwd *user = geteuid() == 0 ? getpwnam("proxy") : nullptr;
    if (!user)
        return;
    (void)!chown(peer.directory().c_str(), user->pw_uid, user->pw_gid);
    for (const auto &entry : std::filesystem::recursive_directory_iterator(peer.directory()))
        (void)!chown(entry.path().c_str(), user->pw_uid, user->pw_gid);
}

void setup_squid(peer &peer, const std::string &lines)
{
    hand_to_proxy_user(peer);
    peer.start({"squid",
                "squid",
                {"-N", "-f", "@DIR@/squid.conf"},
                "squid.conf",
                "http_port 127.0.0.1:@PORT@\nvisible_hostname vel.test\n"
                "pid_filename @DIR@/squid.pid\ncoredump_dir @DIR@\n"
                "access_log stdio:@DIR@/access.log\ncache_log @DIR@/cache.log\n"
                "cache_store_log none\ncache deny all\ncache_mem 8 MB\n"
                "shutdown_lifetime 1 seconds\npinger_enable off\n" +
                    lines,
                SIGINT});
}

void setup_c_icap(peer &peer)
{
    peer.start({"c-icap",
                "c-icap",
                {"-N", "-D", "-f", "@DIR@/c-icap.conf"},
                "c-icap.conf",
                "Port 127.0.0.1:@PORT@\nPidFile @DIR@/c-icap.pid\nCommandsSocket @DIR@/c-icap.ctl\n"
                "TmpDir @DIR@\nServerLog @DIR@/server.log\nAccessLog @DIR@/access.log\n"
                "Timeout 30\nKeepAliveTimeout 60\nStartServers 1\nMaxServers 2\n"
                "MinSpareThreads 2\nMaxSpareThreads 8\nThreadsPerChild 8\n"
                "LoadMagicFile /etc/c-icap/c-icap.magic\nDebugLevel 1\n"
                "Service echo srv_echo.so\n",
                SIGTERM});
}

} // namespace support
