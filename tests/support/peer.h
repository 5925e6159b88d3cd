#ifndef TESTS_SUPPORT_PEER_H
#define TESTS_SUPPORT_PEER_H

#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

namespace support {

/* How a server program is started. In the texts "@DIR@" stands for the directory of the peer, and
 * "@PORT@" for the free port of 127.0.0.1 that it is to listen on. */
struct peer_setup {
    const char *program;
    const char *package; /* of Debian, for the message when the program is missing */
    std::vector<std::string> arguments;
    std::string configname;
    std::string config;
    int stopsignal;
};

/* A server program that runs as long as this lives, with a directory of its own, which anybody may
 * read and which is removed with it. A process between watches over it: if the test program dies,
 * whatever way, the server and its helpers are ended all the same. */
class peer {
  public:
    peer();
    ~peer();
    peer(const peer &) = delete;
    peer &operator=(const peer &) = delete;

    /* Starts the program and waits until it takes connections. On false failure() says why. */
    bool start(const peer_setup &setup);
    void stop();

    const std::string &failure() const
    {
        return failure_;
    }
    const std::string &directory() const
    {
        return directory_;
    }
    unsigned int port() const
    {
        return port_;
    }
    std::string path(const std::string &name) const
    {
        return directory_ + "/" + name;
    }
    std::string url(const std::string &target) const
    {
        return "http://127.0.0.1:" + std::to_string(port_) + target;
    }

    /* The number of lines of a file in the directory that contain the text, once the condition
     * count >= atleast holds or 10 seconds have passed: a server may write its log after its answer
     * has arrived. */
    int count_lines(const std::string &name, const std::string &text, int atleast) const;

  private:
    void run(const peer_setup &setup);
    bool is_running();
    bool wait_until_listening();
    std::string fill_in(std::string text) const;

    std::string directory_;
    std::string failure_;
    unsigned int port_ = 0;
    pid_t watcher_ = -1;
    int lifeline_ = -1; /* the watcher ends when it is closed */
};

/* nginx with one server, which has the directory "html" as its root, and these locations. */
void setup_nginx(peer &peer, const std::string &locations);

/* tinyproxy, with these lines in its configuration. */
void setup_tinyproxy(peer &peer, const std::string &lines);

/* squid, with these lines in its configuration. */
void setup_squid(peer &peer, const std::string &lines);

/* c-icap with the service "echo", which answers with the message that it got. */
void setup_c_icap(peer &peer);

} // namespace support

#endif
