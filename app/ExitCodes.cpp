#include "app/ExitCodes.h"

#include <new>

int ExitStatus(Exit kind) { return static_cast<int>(kind); }

Exit KindOf(const std::exception& e)
{
    if (const auto* p = dynamic_cast<const ProgramError*>(&e)) return p->Kind();
    if (dynamic_cast<const std::bad_alloc*>(&e)) return Exit::Render;
    return Exit::Internal;
}

const char* KindName(Exit kind)
{
    switch (kind) {
    case Exit::Success: return "success";
    case Exit::Internal: return "internal error";
    case Exit::Usage: return "usage error";
    case Exit::File: return "file error";
    case Exit::Render: return "render failure";
    case Exit::HungUp: return "hung up";
    case Exit::Interrupted: return "interrupted";
    }
    return "unknown";
}

std::string MessageOf(const std::exception& e)
{
    // A header check cannot see everything a frame allocates; running out
    // anyway is a memory failure like any other, not a fault of the program.
    if (dynamic_cast<const std::bad_alloc*>(&e))
        return "out of memory: an allocation failed; give a lower --max-memory so frames this large are refused "
               "before they start, or free memory";
    return e.what();
}
