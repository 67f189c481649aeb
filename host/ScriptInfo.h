#pragma once
// What the host's scripting knows of a class: its version and ID.
#include <cstdint>
#include <string>

class ScriptInfo {
public:
    ScriptInfo(std::uint32_t version, const char* id, const char* parentId, const char* help)
        : Version(version), ID(id ? id : ""), ParentID(parentId ? parentId : ""), Help(help ? help : "")
    {
    }
    virtual ~ScriptInfo() = default;

    const std::uint32_t Version;
    const std::string ID;
    const std::string ParentID;
    const std::string Help;
};

// The script information of one tool class: the two casts the scripting layer
// uses to move between the tool and its scripting object. The tool is its own
// scripting object, so both hand back what they are given.
template <class T>
class ScriptInfoT : public ScriptInfo {
public:
    using ScriptInfo::ScriptInfo;
    virtual void* ToScript(void* obj) { return obj; }
    virtual void* FromScript(void* obj) { return obj; }
};
