#include "app/Interrupt.h"

#include "app/ExitCodes.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace {

std::atomic<int> g_signals{0};
// The temporary file being written, for the handler. A plain buffer, because
// the handler may only call async-signal-safe functions.
char g_pending[PATH_MAX + 1] = {};
std::atomic<bool> g_hasPending{false};

void Write(const char* text) { [[maybe_unused]] ssize_t n = ::write(STDERR_FILENO, text, std::strlen(text)); }

extern "C" void OnSignal(int)
{
    if (g_signals.fetch_add(1) == 0) {
        Write("\nlumivane: interrupted; stopping after cleaning up (press Ctrl-C again to stop at once)\n");
        return;
    }
    if (g_hasPending.load()) ::unlink(g_pending);
    Write("\nlumivane: stopped\n");
    ::_exit(static_cast<int>(Exit::Interrupted));
}

}  // namespace

void InstallInterruptHandlers()
{
    struct sigaction sa {};
    sa.sa_handler = OnSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    // Past a file-size limit a write then fails with an error that is reported
    // and cleaned up like any other, instead of the signal killing the program
    // with a temporary file left behind.
    std::signal(SIGXFSZ, SIG_IGN);
}

bool InterruptRequested() { return g_signals.load() > 0; }

void RequestInterrupt() { g_signals.fetch_add(1); }

PendingFile::PendingFile(std::string finalPath) : m_final(std::move(finalPath))
{
    const std::filesystem::path p(m_final);
    // Beside the final file, so the rename stays on one file system; hidden, and
    // with the final extension so that it is still recognisable.
    m_temp = (p.parent_path() / ("." + p.filename().string() + "." + std::to_string(::getpid()) + ".tmp" +
                                 p.extension().string()))
                 .string();
    if (m_temp.size() <= PATH_MAX) {
        g_hasPending.store(false);
        std::memcpy(g_pending, m_temp.c_str(), m_temp.size() + 1);
        g_hasPending.store(true);
    }
}

PendingFile::~PendingFile()
{
    g_hasPending.store(false);
    if (!m_done) std::remove(m_temp.c_str());
}

void PendingFile::Commit()
{
    if (std::rename(m_temp.c_str(), m_final.c_str()) != 0) {
        const std::string why = std::strerror(errno);
        throw FileError("cannot write " + m_final + ": renaming the finished file into place failed: " + why);
    }
    m_done = true;
    g_hasPending.store(false);
}
