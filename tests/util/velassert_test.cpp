#include <csignal>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include <vellib/vellib.h>

/* A socket that keeps the limits of messages tells one write from several. */
TEST(Velassert, LineIsOneWriteAndThenTheProcessAborts)
{
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair), 0);
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(pair[1], STDERR_FILENO);
        close(pair[0]);
        close(pair[1]);
        (void)vel_strdup(nullptr);
        _exit(0);
    }
    close(pair[1]);
    char text[1024];
    const ssize_t length = recv(pair[0], text, sizeof(text), 0);
    ASSERT_GT(length, 0);
    char rest[1024];
    EXPECT_EQ(recv(pair[0], rest, sizeof(rest), 0), 0) << "a second write";
    close(pair[0]);

    EXPECT_THAT(std::string(text, static_cast<size_t>(length)),
                testing::MatchesRegex("Assertion failed: \\(string != NULL\\), function "
                                      "vel_strdup, file velstrdup\\.cpp, line [0-9]+\\.\n"));
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGABRT);
}
