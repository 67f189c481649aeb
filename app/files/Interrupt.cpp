#include "app/files/Interrupt.h"

#include "app/files/ExitCodes.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <pthread.h>
#include <unistd.h>

namespace {

std::atomic<int> g_signals{0};
std::atomic<int> g_firstSignal{0};
std::atomic<int> g_waiting{0};  // InterruptsWait alive
// The temporary file being written, for the handler. A plain buffer, because
// the handler may only call async-signal-safe functions. Named before the file
// is made, with the thread that makes and writes it.
char g_pending[PATH_MAX + 1] = {};
std::atomic<bool> g_hasPending{false};
pthread_t g_pendingOwner{};

void Write(const char* text) { [[maybe_unused]] ssize_t n = ::write(STDERR_FILENO, text, std::strlen(text)); }

Exit KindOfSignal(int signal) { return signal == SIGHUP ? Exit::HungUp : Exit::Interrupted; }

extern "C" void OnSignal(int signal)
{
    const int saved = errno;
    int none = 0;
    g_firstSignal.compare_exchange_strong(none, signal);
    if (g_signals.fetch_add(1) == 0 && g_waiting.load() > 0) {
        Write("\nlumivane: interrupted; stopping after cleaning up (press Ctrl-C again to stop at once)\n");
        errno = saved;
        return;
    }
    if (g_hasPending.load()) {
        // Removed by its writer's own thread, stopped in here: removed from
        // any other, the writer could make it again (opening it by name)
        // before the process ends.
        if (!pthread_equal(g_pendingOwner, pthread_self()) && ::pthread_kill(g_pendingOwner, signal) == 0) {
            errno = saved;
            return;
        }
        ::unlink(g_pending);
    }
    Write("\nlumivane: stopped\n");
    ::_exit(static_cast<int>(KindOfSignal(g_firstSignal.load())));
}

}  // namespace

void InstallInterruptHandlers()
{
    struct sigaction sa {};
    sa.sa_handler = OnSignal;
    sigemptyset(&sa.sa_mask);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &sa, nullptr);
    // Past a file-size limit a write then fails with an error that is reported
    // and cleaned up like any other, instead of the signal killing the program
    // with a temporary file left behind; and a reader of the output that went
    // away leaves the render running.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
}

bool InterruptRequested() { return g_signals.load() > 0; }

Exit InterruptKind() { return KindOfSignal(g_firstSignal.load()); }

void RequestInterrupt() { g_signals.fetch_add(1); }

InterruptsWait::InterruptsWait() { g_waiting.fetch_add(1); }

InterruptsWait::~InterruptsWait() { g_waiting.fetch_sub(1); }

void PendingFile::Name(const std::string& temp)
{
    g_hasPending.store(false);
    if (temp.size() > PATH_MAX) return;
    std::memcpy(g_pending, temp.c_str(), temp.size() + 1);
    g_pendingOwner = pthread_self();
    g_hasPending.store(true);
}

AtomicFile PendingFile::Open(const std::string& finalPath)
{
    try {
        return AtomicFile(finalPath, nullptr, Name);
    } catch (const AtomicFile::Refused& e) {
        throw FileError("cannot write " + finalPath + ": " + e.what());
    }
}

PendingFile::PendingFile(std::string finalPath) : m_file(Open(finalPath)) {}

// The handler keeps the temporary file's name until the file is gone or
// renamed, so a signal in between cannot leave it behind; unlinking a name
// already renamed away only fails.
PendingFile::~PendingFile()
{
    if (!m_file.Committed()) std::remove(TempPath().c_str());
    g_hasPending.store(false);
}

void PendingFile::Commit()
{
    const std::string why = m_file.Commit();
    if (!why.empty()) throw FileError("cannot write " + FinalPath() + ": " + why);
}

ProgramError PendingFile::Failure(std::string why) const
{
    const std::string& temp = TempPath();
    for (std::size_t at = why.find(temp); at != std::string::npos; at = why.find(temp, at + FinalPath().size()))
        why.replace(at, temp.size(), FinalPath());
    const std::string full = m_file.OutOfRoom();
    if (!full.empty() && why.find(full) == std::string::npos) why += " (" + full + ")";
    return FileError("cannot write " + FinalPath() + ": " + why);
}
