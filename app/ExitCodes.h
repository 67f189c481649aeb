#pragma once
// How the program ends. Every failure is one of these kinds, and this is the one
// place that gives each kind its exit status; docs/lumivane.md lists the same table.
#include <exception>
#include <stdexcept>
#include <string>

enum class Exit : int {
    Success = 0,
    Internal = 1,       // a fault of the program itself
    Usage = 2,          // the command line or a control value is wrong
    File = 3,           // a file could not be read or written, or a flow or plug-in is bad
    Render = 4,         // the tool rendered no image for a frame
    HungUp = 129,       // SIGHUP: the terminal or session closed
    Interrupted = 130,  // SIGINT or SIGTERM
};

// A failure that knows its kind. The message names the file, control or value
// and what was expected.
class ProgramError : public std::runtime_error {
public:
    ProgramError(Exit kind, const std::string& message) : std::runtime_error(message), m_kind(kind) {}
    Exit Kind() const { return m_kind; }

private:
    Exit m_kind;
};

inline ProgramError UsageError(const std::string& message) { return ProgramError(Exit::Usage, message); }
inline ProgramError FileError(const std::string& message) { return ProgramError(Exit::File, message); }
inline ProgramError RenderError(const std::string& message) { return ProgramError(Exit::Render, message); }

int ExitStatus(Exit kind);
// The kind of any exception: a ProgramError's own, Render for an allocation
// failure (as for a frame over the memory limit), Internal for anything else.
Exit KindOf(const std::exception& e);
// What to tell the user: the message, or for an allocation failure, that
// memory ran out.
std::string MessageOf(const std::exception& e);
// Short name of a kind for summaries ("file error").
const char* KindName(Exit kind);
