#include "app/ExitCodes.h"

int ExitStatus(Exit kind) { return static_cast<int>(kind); }

Exit KindOf(const std::exception& e)
{
    if (const auto* p = dynamic_cast<const ProgramError*>(&e)) return p->Kind();
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
    case Exit::Interrupted: return "interrupted";
    }
    return "unknown";
}
