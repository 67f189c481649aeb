#pragma once
// Stopping on SIGINT, SIGTERM and SIGHUP without leaving partial files.
//
// While a render loop runs (an InterruptsWait is alive), the first signal asks
// the program to stop: the loop sees it between steps, drops the frame it was
// on and exits with status 130 (129 for SIGHUP). Anywhere else (loading
// plug-ins, reading a file), and at a second signal, the program stops at once;
// the only file that could be partial then is the one being written, and the
// handler removes it before exiting.
//
// Standard output and error may be a pipe whose reader is gone (`render -v |
// head -1`) or a closed terminal: SIGPIPE is ignored, so such writes fail
// quietly and the render goes on.
#include "app/files/ExitCodes.h"
#include "util/AtomicFile.h"

#include <string>

void InstallInterruptHandlers();
bool InterruptRequested();
// What an interrupted run ends with: HungUp after SIGHUP, else Interrupted.
Exit InterruptKind();
// For tests and for a program that wants to stop itself the same way.
void RequestInterrupt();

// While one lives, the first signal only asks to stop; its owner looks.
class InterruptsWait {
public:
    InterruptsWait();
    ~InterruptsWait();
    InterruptsWait(const InterruptsWait&) = delete;
    InterruptsWait& operator=(const InterruptsWait&) = delete;
};

// An output file written under a temporary name in its own folder and renamed
// over the final name by Commit (util/AtomicFile.h), so the final name only ever
// holds a complete file. Until then the temporary file is removed when this
// object goes away, and by the signal handler when it stops the program.
class PendingFile {
public:
    // Throws a file ProgramError naming the file when it may not be written.
    explicit PendingFile(std::string finalPath);
    ~PendingFile();
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;

    const std::string& TempPath() const { return m_file.TempPath(); }
    const std::string& FinalPath() const { return m_file.FinalPath(); }
    // Throws a file ProgramError naming the final file with the reason when it
    // cannot be put in place.
    void Commit();
    // The file error for a write that failed with the writer's `why`: it names
    // the final file (never the temporary one) and says when the disk is full
    // or the file reached the file-size limit.
    ProgramError Failure(std::string why) const;

private:
    static void Name(const std::string& tempPath);
    static AtomicFile Open(const std::string& finalPath);
    AtomicFile m_file;
};
