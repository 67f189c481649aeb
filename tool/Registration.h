#pragma once
class Registry;

// The tool's registry entry. A program that links the core statically calls
// this to keep the registration in its image; a loaded module needs nothing.
const Registry* Lumivane2Registry();
