#pragma once
// A document with one Lumivane 2 tool in it, for tests that link the tool and
// look at its per-render state.
#include "support/DocHarness.h"
#include "tool/Lumivane2.h"
#include "tool/Registration.h"

struct ToolHarness : DocHarness {
    Lumivane2* tool;

    ToolHarness() : DocHarness((Lumivane2Registry(), kToolClass)), tool(static_cast<Lumivane2*>(op)) {}
};
