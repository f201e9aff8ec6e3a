// Write-back of the configuration file: unchanged text is not rewritten, only a regular file is
// opened, a write that falls short is reported, the caller's signal mask survives.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>

#include <functional>

#include "test_config_util.h"

namespace {

struct stat stat_of(const std::string& path) {
    struct stat st {};
    EXPECT_EQ(stat(path.c_str(), &st), 0) << path;
    return st;
}

// Runs fn in a child process and returns its exit status, or -1 when it has not ended within
// `seconds` (the child is then killed): a regression that blocks fails instead of hanging.
int in_child_within(int seconds, const std::function<int()>& fn) {
    pid_t pid = fork();
    if (pid == 0) _exit(fn());
    if (pid < 0) return -2;
    timespec tick{0, 10 * 1000 * 1000};
    for (int waited = 0; waited < seconds * 100; ++waited) {
        int st = 0;
        if (waitpid(pid, &st, WNOHANG) == pid) return WIFEXITED(st) ? WEXITSTATUS(st) : -3;
        nanosleep(&tick, nullptr);
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return -1;
}

constexpr timespec kLongAgo = {1000000000, 0};  // 2001: any rewrite moves the time

}  // namespace

TEST_F(ConfigTest, OnlyTextThatDiffersFromTheFileIsWritten) {
    load("");
    kvol_config_ad_set_name("SER1", "lab");
    kvol_config_ioc_add(wwn_of("10:00:00:05:1e:00:00:01"));
    const std::string text = sync();
    std::string other = text;
    other[other.size() / 2] ^= 0x20;
    const struct {
        const char* what;
        std::string before;
    } cases[] = {
        {"the same text", text},
        {"one byte more", text + "\n"},
        {"one byte less", text.substr(0, text.size() - 1)},
        {"one byte changed", other},
        {"empty", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        write_file(c.before);
        const timespec times[2] = {kLongAgo, kLongAgo};
        ASSERT_EQ(utimensat(AT_FDCWD, path(), times, 0), 0);
        const struct stat before = stat_of(path_);
        // The lock without a load: the tables stay those that made `text`.
        ASSERT_EQ(kvol_lock_conf_file(path()), KVO_STATUS_OK);
        EXPECT_EQ(kvol_config_sync(path()), KVO_STATUS_OK);
        const struct stat after = stat_of(path_);
        EXPECT_EQ(read_file(), text);
        EXPECT_EQ(after.st_ino, before.st_ino);  // rewritten in place, never replaced
        const bool untouched = after.st_mtim.tv_sec == kLongAgo.tv_sec &&
                               after.st_mtim.tv_nsec == kLongAgo.tv_nsec;
        EXPECT_EQ(untouched, c.before == text);
    }
}

TEST_F(ConfigTest, OnlyARegularFileIsOpenedAndNothingBlocks) {
    const std::string fifo = dir_ + "/fifo", sock = dir_ + "/sock", sub = dir_ + "/sub";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    ASSERT_EQ(mkdir(sub.c_str(), 0755), 0);
    int s = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(s, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof addr.sun_path, "%s", sock.c_str());
    ASSERT_EQ(bind(s, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    // A FIFO with nobody at the other end, a socket, a directory, a device.
    for (const std::string& p : {fifo, sock, sub, std::string("/dev/null")}) {
        SCOPED_TRACE(p);
        // Exit status: bit 0 the load refused, bit 1 the write-back without a lock refused.
        int rc = in_child_within(10, [&] {
            int bits = 0;
            if (kvol_config_load(p.c_str()) == KVO_STATUS_EFOPEN) bits |= 1;
            kvol_config_unload();
            if (kvol_config_sync(p.c_str()) == KVO_STATUS_EFOPEN) bits |= 2;
            return bits;
        });
        EXPECT_EQ(rc, 3) << (rc == -1 ? "blocked" : "");
    }
    EXPECT_TRUE(S_ISFIFO(stat_of(fifo).st_mode));
    close(s);
    unlink(sock.c_str());
    unlink(fifo.c_str());
    rmdir(sub.c_str());
}

TEST_F(ConfigTest, ASymlinkedFileIsRewrittenThroughTheLink) {
    const std::string real = dir_ + "/real.conf";
    ASSERT_EQ(symlink(real.c_str(), path()), 0);
    load("");
    kvol_config_ad_set_name("SER1", "lab");
    EXPECT_EQ(kvol_config_sync(path()), KVO_STATUS_OK);
    struct stat st {};
    ASSERT_EQ(lstat(path(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    EXPECT_TRUE(contains(read_file(), "adapter-SER1-name = \"lab\";\n"));
    unlink(real.c_str());
}

TEST_F(ConfigTest, AWriteThatFallsShortIsAnIoErrorAndNeverEmptiesTheFile) {
    constexpr size_t kLimit = 256;  // less than the section headers alone
    load("");
    const std::string text = render();  // what a load of a file of comments writes back
    kvol_config_unload();
    const struct {
        const char* what;
        std::string before;
        std::string after;  // what the file holds once the write has failed
    } cases[] = {
        {"from empty: the part that fits", "", text.substr(0, kLimit)},
        // Written over, not truncated first: the old bytes past the failure are still there.
        {"over a longer file: nothing cut", std::string(4000, '#'),
         text.substr(0, kLimit) + std::string(4000 - kLimit, '#')},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        write_file(c.before);
        int rc = in_child_within(10, [&] {
            signal(SIGXFSZ, SIG_IGN);
            rlimit lim{};
            getrlimit(RLIMIT_FSIZE, &lim);
            lim.rlim_cur = kLimit;
            if (setrlimit(RLIMIT_FSIZE, &lim) != 0) return 100;
            if (kvol_config_load(path()) != KVO_STATUS_OK) return 101;
            kvo_status_t st = kvol_config_sync(path());
            // The failure released the lock.
            if (kvol_config_load(path()) != KVO_STATUS_OK) return 102;
            return static_cast<int>(st);
        });
        EXPECT_EQ(rc, KVO_STATUS_EIO);
        EXPECT_EQ(read_file(), c.after);
    }
}

TEST_F(ConfigTest, TheCallersSignalMaskIsRestored) {
    sigset_t usr1, saved, now;
    sigemptyset(&usr1);
    sigaddset(&usr1, SIGUSR1);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &usr1, &saved), 0);
    load("");
    kvol_config_ad_set_name("SER1", "lab");
    EXPECT_EQ(kvol_config_sync(path()), KVO_STATUS_OK);
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &saved, &now), 0);
    EXPECT_EQ(sigismember(&now, SIGUSR1), 1);
    for (int sig : {SIGINT, SIGTERM, SIGHUP})
        EXPECT_EQ(sigismember(&now, sig), sigismember(&saved, sig)) << sig;
}
