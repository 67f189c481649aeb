#include "app/farm/Subprocess.h"

#include "app/files/ExitCodes.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

class Pipe {
public:
    Pipe()
    {
        if (pipe(m_fd) != 0) throw FileError(std::string("cannot make a pipe: ") + std::strerror(errno));
    }
    ~Pipe()
    {
        CloseRead();
        CloseWrite();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    int Read() const { return m_fd[0]; }
    int Write() const { return m_fd[1]; }
    void CloseRead() { Close(m_fd[0]); }
    void CloseWrite() { Close(m_fd[1]); }

private:
    static void Close(int& fd)
    {
        if (fd >= 0) close(fd);
        fd = -1;
    }
    int m_fd[2] = {-1, -1};
};

// Reads both pipes until the program closes them, so neither fills up and
// blocks it.
void ReadBoth(Pipe& out, Pipe& err, std::string& outText, std::string& errText)
{
    pollfd fds[2] = {{out.Read(), POLLIN, 0}, {err.Read(), POLLIN, 0}};
    std::string* texts[2] = {&outText, &errText};
    int open = 2;
    char buffer[4096];
    while (open > 0) {
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
            const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0) {
                texts[i]->append(buffer, static_cast<std::size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                fds[i].fd = -1;
                --open;
            }
        }
    }
}

}  // namespace

ProgramRun RunProgram(const std::vector<std::string>& argv)
{
    if (argv.empty()) throw FileError("no program to run");
    Pipe out, err;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out.Write(), 1);
    posix_spawn_file_actions_adddup2(&actions, err.Write(), 2);
    posix_spawn_file_actions_addclose(&actions, out.Read());
    posix_spawn_file_actions_addclose(&actions, err.Read());

    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    pid_t pid = 0;
    const int failed = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failed != 0) throw FileError("cannot run " + argv[0] + ": " + std::strerror(failed));
    out.CloseWrite();
    err.CloseWrite();

    ProgramRun run;
    ReadBoth(out, err, run.out, run.err);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0)
        if (errno != EINTR) throw FileError("cannot wait for " + argv[0] + ": " + std::strerror(errno));
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return run;
}

std::string FindOnPath(const std::string& name)
{
    const char* path = std::getenv("PATH");
    std::string folders = path ? path : "/usr/bin:/bin";
    std::size_t begin = 0;
    while (begin <= folders.size()) {
        std::size_t end = folders.find(':', begin);
        if (end == std::string::npos) end = folders.size();
        const std::string folder = end > begin ? folders.substr(begin, end - begin) : ".";
        const std::string file = folder + "/" + name;
        if (access(file.c_str(), X_OK) == 0) return file;
        begin = end + 1;
    }
    return {};
}

std::string ShellQuote(const std::string& text)
{
    if (!text.empty() && text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                                "0123456789_-+=.,/:@%") == std::string::npos)
        return text;
    std::string quoted = "'";
    for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

std::string ShellCommand(const std::vector<std::string>& argv)
{
    std::string line;
    for (const std::string& a : argv) line += (line.empty() ? "" : " ") + ShellQuote(a);
    return line;
}
