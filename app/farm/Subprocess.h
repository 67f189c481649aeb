#pragma once
// Running another program and keeping what it printed. The program is started
// directly (posix_spawnp), never through a shell, so no argument is ever parsed
// as shell text.
#include <string>
#include <vector>

struct ProgramRun {
    int status = 0;  // the exit status; 128 + N when signal N ended it
    std::string out, err;
};

// Runs argv[0], found on PATH when it holds no '/', with argv, and waits for
// it. Throws a file ProgramError naming the program when it cannot be started
// (not found on PATH, not executable).
ProgramRun RunProgram(const std::vector<std::string>& argv);

// The file `name` stands for on PATH, or "" when there is none.
std::string FindOnPath(const std::string& name);

// `text` as one word for a POSIX shell: as it is when it holds only safe
// characters, else in single quotes.
std::string ShellQuote(const std::string& text);
std::string ShellCommand(const std::vector<std::string>& argv);
