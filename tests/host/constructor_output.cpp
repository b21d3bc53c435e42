// SPDX-License-Identifier: MIT
//
// The output of a module's static constructors before main closes its descriptors: it arrives if that neither waits
// nor kills, and never in a file that has got the number since.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "host/host_process.h"

namespace {

using namespace harness;

class Folder {
public:
    Folder() : path_(std::filesystem::temp_directory_path() / "prints.XXXXXX")
    {
        EXPECT_NE(mkdtemp(path_.data()), nullptr);
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

std::string content(const std::string &path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The bytes that can be read without waiting.
std::string available(int fd)
{
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    std::string all(1 << 20, '\0');
    size_t used = 0;
    ssize_t count;
    while ((count = read(fd, &all[used], all.size() - used)) > 0)
        used += static_cast<size_t>(count);
    all.resize(used);
    return all;
}

// Both ends; closed with it.
struct Pair {
    int read = -1, write = -1;
    ~Pair()
    {
        close(read);
        close(write);
    }
};

Pair pipe_pair()
{
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    return {ends[0], ends[1]};
}

Pair socket_pair()
{
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    return {ends[0], ends[1]};
}

// Without a reader's help, nothing more goes in. Leaves room for count bytes, a whole number of pages.
size_t fill(const Pair &pair, size_t room = 0)
{
    const int flags = fcntl(pair.write, F_GETFL);
    fcntl(pair.write, F_SETFL, flags | O_NONBLOCK);
    const std::string page(4096, '.');
    size_t written = 0;
    ssize_t count;
    while ((count = write(pair.write, page.data(), page.size())) > 0)
        written += static_cast<size_t>(count);
    fcntl(pair.write, F_SETFL, flags);
    std::string taken(room, '\0');
    if (room > 0) written -= static_cast<size_t>(read(pair.read, taken.data(), room));
    return written;
}

class ConstructorOutput : public testing::Test {
protected:
    // A whole life of a host whose constructor has printed.
    void live(int output, std::vector<std::string> environment, std::vector<sock_filter> filter = {})
    {
        environment.push_back("SETUP_FOLDER=" + folder_.path());
        Block block;
        HostProcess host(block, Start{.module = "prints",
                                      .environment = std::move(environment),
                                      .filter = std::move(filter),
                                      .output = output});
        host.await_idle();
        EXPECT_EQ(host.descriptors(), (std::set<int>{0, 1, 2, 3, 4}));
        EXPECT_EQ(host.terminate(), exited(0));
        errors_ = host.errors();
        for (const char *name : {"0", "1", "2", "3"})
            EXPECT_EQ(content(folder_ / name).size(), 0u) << "bytes in file " << name << " of dll_setup";
    }

    Folder folder_;
    std::string errors_;
};

TEST_F(ConstructorOutput, arrives_in_a_pipe)
{
    const Pair pipe = pipe_pair();
    live(pipe.write, {"PRINTS=3"});
    EXPECT_EQ(available(pipe.read), "ooo");
    EXPECT_EQ(errors_, "");
}

TEST_F(ConstructorOutput, arrives_in_files)
{
    const std::string out = folder_ / "out";
    const int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(write(fd, "before ", 7), 7);
    live(fd, {"PRINTS=3", "PRINTS_INTO=" + (folder_ / "opened")});
    close(fd);
    EXPECT_EQ(content(out), "before ooo");
    EXPECT_EQ(content(folder_ / "opened"), "fff");
}

TEST_F(ConstructorOutput, arrives_where_descriptors_are_not_listed)
{
    const Pair pipe = pipe_pair();
    live(pipe.write, {"PRINTS=3"}, without_folders());
    EXPECT_EQ(available(pipe.read), "ooo");
}

TEST_F(ConstructorOutput, arrives_in_a_terminal)
{
    const Pair terminal = {posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), -1};
    ASSERT_EQ(grantpt(terminal.read) | unlockpt(terminal.read), 0);
    const int screen = open(ptsname(terminal.read), O_RDWR | O_NOCTTY | O_CLOEXEC);
    live(screen, {"PRINTS=3"});
    EXPECT_EQ(available(terminal.read), "ooo");
    close(screen);
}

TEST_F(ConstructorOutput, is_dropped_where_a_terminal_is_stopped)
{
    const Pair terminal = {posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), -1};
    ASSERT_EQ(grantpt(terminal.read) | unlockpt(terminal.read), 0);
    const int screen = open(ptsname(terminal.read), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(tcflow(screen, TCOOFF), 0);
    live(screen, {"PRINTS=3"});
    EXPECT_EQ(tcflow(screen, TCOON), 0);
    EXPECT_EQ(available(terminal.read), "");
    close(screen);
}

TEST_F(ConstructorOutput, is_cut_where_a_terminal_becomes_full)
{
    const Pair terminal = {posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), -1};
    ASSERT_EQ(grantpt(terminal.read) | unlockpt(terminal.read), 0);
    const int screen = open(ptsname(terminal.read), O_RDWR | O_NOCTTY | O_CLOEXEC);
    live(screen, {"PRINTS=900000", "PRINTS_BUFFER=1000000"});
    const std::string all = available(terminal.read);
    EXPECT_GT(all.size(), 0u);
    EXPECT_LT(all.size(), 900000u);
    EXPECT_EQ(all, std::string(all.size(), 'o'));
    close(screen);
}

TEST_F(ConstructorOutput, is_dropped_where_a_pipe_is_full)
{
    for (const char *wide : {"0", "1"}) {
        const Pair pipe = pipe_pair();
        const size_t size = fill(pipe);
        live(pipe.write, {"PRINTS=3000", std::string("PRINTS_WIDE=") + wide});
        EXPECT_EQ(available(pipe.read), std::string(size, '.'));
    }
}

TEST_F(ConstructorOutput, is_cut_where_a_pipe_becomes_full)
{
    for (const char *wide : {"0", "1"}) {
        const Pair pipe = pipe_pair();
        const size_t size = fill(pipe, 8192);
        live(pipe.write, {"PRINTS=15000", "PRINTS_BUFFER=65536", std::string("PRINTS_WIDE=") + wide});
        const std::string all = available(pipe.read);
        EXPECT_LE(all.size(), size + 8192);
        EXPECT_EQ(all, std::string(size, '.') + std::string(all.size() - size, 'o'));
        EXPECT_GT(all.size(), size);
    }
}

TEST_F(ConstructorOutput, is_dropped_where_nobody_can_read_a_pipe)
{
    Pair pipe = pipe_pair();
    close(std::exchange(pipe.read, -1));
    live(pipe.write, {"PRINTS=3"});
}

TEST_F(ConstructorOutput, is_dropped_where_a_socket_is_full)
{
    const Pair socket = socket_pair();
    const size_t size = fill(socket);
    live(socket.write, {"PRINTS=3000"});
    EXPECT_EQ(available(socket.read), std::string(size, '.'));
}

TEST_F(ConstructorOutput, is_dropped_where_a_file_may_not_grow)
{
    const std::string out = folder_ / "out";
    const int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit none = {0, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &none);
    live(fd, {"PRINTS=3"});
    setrlimit(RLIMIT_FSIZE, &limit);
    close(fd);
    EXPECT_EQ(content(out), "");
}

// Only what the writing itself raises is taken back.
TEST_F(ConstructorOutput, leaves_a_signal_pending_that_was_so_before)
{
    Pair pipe = pipe_pair();
    close(std::exchange(pipe.read, -1));
    Block block;
    HostProcess host(block, Start{.module = "prints",
                                  .environment = {"PRINTS=3", "PRINTS_RAISES=" + std::to_string(SIGPIPE)},
                                  .blocked = {SIGPIPE, SIGUSR2},
                                  .output = pipe.write});
    EXPECT_EQ(host.await_end(), killed(SIGPIPE));
}

// Whoever shares it must not find their writes failing.
TEST_F(ConstructorOutput, changes_nothing_for_others_who_have_the_pipe)
{
    const Pair pipe = pipe_pair();
    const int flags = fcntl(pipe.write, F_GETFL);
    live(pipe.write, {"PRINTS=3"});
    EXPECT_EQ(fcntl(pipe.write, F_GETFL), flags);
}

TEST_F(ConstructorOutput, arrives_beside_a_thread_that_reads)
{
    const Pair pipe = pipe_pair();
    live(pipe.write, {"PRINTS=3", "PRINTS_READER=1"});
    EXPECT_EQ(available(pipe.read), "ooo");
}

TEST_F(ConstructorOutput, is_dropped_beside_a_thread_that_reads_where_a_pipe_is_full)
{
    const Pair pipe = pipe_pair();
    const size_t size = fill(pipe);
    live(pipe.write, {"PRINTS=3000", "PRINTS_READER=1"});
    EXPECT_EQ(available(pipe.read), std::string(size, '.'));
}

TEST_F(ConstructorOutput, on_standard_error_arrives_there)
{
    const Pair pipe = pipe_pair();
    live(pipe.write, {"PRINTS_ERRORS=3"});
    EXPECT_EQ(errors_, "eee");
}

} // namespace
