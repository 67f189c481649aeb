#include "tool/Lumivane2.h"

Lumivane2::Lumivane2(Registry* reg, const ScriptVal& table, const TagList& tags)
    : ThreadedOperator(reg, table, tags), errorMutex(new boost::mutex)
{
    shapeControlsEnabled = true;
    shrinkDisk = false;
    CreateControls();
}

Lumivane2::~Lumivane2() = default;

Object* CreateLumivane2(Registry* reg, const ScriptVal& table, const TagList& tags)
{
    // The constructor's own exceptions pass to the host; new frees the memory.
    return new (std::nothrow) Lumivane2(reg, table, tags);
}
