#pragma once
// Stopping on SIGINT and SIGTERM without leaving partial files.
//
// The first signal asks the program to stop: the render loop sees it between
// steps, drops the frame it was on and exits with status 130. A second signal
// stops at once; the only file that could be partial then is the one being
// written, and the handler removes it before exiting.
#include "app/files/ExitCodes.h"
#include "util/AtomicFile.h"

#include <string>

void InstallInterruptHandlers();
bool InterruptRequested();
// For tests and for a program that wants to stop itself the same way.
void RequestInterrupt();

// An output file written under a temporary name in its own folder and renamed
// over the final name by Commit (util/AtomicFile.h), so the final name only ever
// holds a complete file. Until then the temporary file is removed when this
// object goes away, and by the signal handler on a second signal.
class PendingFile {
public:
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
    // the final file (never the temporary one) and says when the disk is full.
    ProgramError Failure(std::string why) const;

private:
    AtomicFile m_file;
};
